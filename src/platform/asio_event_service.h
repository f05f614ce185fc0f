// The event service of the desk platform: one thread, driven by Boost.Asio.
#pragma once

#include <atomic>
#include <chrono>
#include <functional>
#include <list>
#include <mutex>
#include <optional>
#include <thread>

#include <boost/asio/executor_work_guard.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/steady_timer.hpp>

#include "platform/pending_messages.h"
#include "platform/socket_service.h"

namespace tarvex {

/// Everything is delivered on the thread that is in Run(), messages and tasks in one
/// line, except that time-sensitive messages overtake all that is not. After
/// Clear() nothing pending of that handler and id arrives. An exception that leaves
/// a handler or a task is logged as an error, and the loop goes on.
class AsioEventService : public SocketService {
 public:
  /// @param clock_scale above 0; the delays of PostDelayed are divided by it, so that
  ///                    10 makes ten seconds pass in one.
  explicit AsioEventService(double clock_scale = 1.0);

  /// Run() must have returned. What is still pending is dropped, undelivered.
  ~AsioEventService() override;

  AsioEventService(const AsioEventService&) = delete;
  AsioEventService& operator=(const AsioEventService&) = delete;

  void Post(MessageHandler* handler, unsigned int id, boost::shared_ptr<MessageData> data,
            bool time_sensitive) override;
  void PostDelayed(int delay_ms, MessageHandler* handler, unsigned int id,
                   boost::shared_ptr<MessageData> data) override;
  void Clear(MessageHandler* handler, unsigned int id, std::list<Message>* removed) override;

  /// Has a task run on the service's thread, in line with the messages that are not
  /// time-sensitive. Any thread.
  void PostTask(std::function<void()> task);

  /// The same after a delay of real time, which is not scaled. Cannot be cancelled.
  void PostTaskAfter(std::chrono::milliseconds delay, std::function<void()> task);

  boost::asio::io_context& context() override { return context_; }
  bool WaitUntil(TimePoint deadline, const std::function<bool()>& is_over) override;

  /// Makes the calling thread the service's thread; returns after Stop().
  void Run();

  /// Ends Run(), also one that has not begun yet, for good. Any thread.
  void Stop();

 private:
  std::chrono::nanoseconds Scaled(int delay_ms) const;
  void WakeThread();
  bool HasMessage();
  void DeliverNext();
  template <class Step>
  void Guarded(Step step);
  void ArmTimer();
  void OnTimer();

  const double clock_scale_;
  std::atomic<bool> is_stopped_{false};
  std::mutex mutex_;        // guards the three that follow, and the timer
  std::thread::id thread_;  // in Run(); none before
  PendingMessages pending_;
  std::optional<PendingMessages::TimePoint> armed_for_;
  boost::asio::io_context context_;
  boost::asio::executor_work_guard<boost::asio::io_context::executor_type> work_;
  boost::asio::steady_timer timer_;  // of the delayed message that is due first
};

/// TARVEX_CLOCK_SCALE as the constructor above takes it; 1 when it is not set, or
/// (with an error in the log) not a number above 0.
double ClockScaleFromEnvironment();

}  // namespace tarvex
