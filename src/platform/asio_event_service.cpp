#include "platform/asio_event_service.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <exception>
#include <memory>
#include <utility>

#include <boost/asio/post.hpp>
#include <boost/make_shared.hpp>

#include "platform/log.h"

namespace tarvex {
namespace {

using std::chrono::steady_clock;

/// Messages that are delivered before the sockets are looked at again. One leads to the next.
constexpr int kMostInARow = 8;

bool IsUsableScale(double scale) { return std::isfinite(scale) && scale > 0; }

/// A task waits in line as a message to a handler that runs it.
struct Task : MessageData {
  explicit Task(std::function<void()> what_to_do) : run(std::move(what_to_do)) {}
  const std::function<void()> run;
};

struct TaskRunner : MessageHandler {
  void OnMessage(Message* msg) override { static_cast<const Task&>(*msg->data).run(); }
} task_runner;

}  // namespace

AsioEventService::AsioEventService(double clock_scale)
    : clock_scale_(IsUsableScale(clock_scale) ? clock_scale : 1.0),
      context_(1),
      work_(boost::asio::make_work_guard(context_)),
      timer_(context_) {}

AsioEventService::~AsioEventService() {
  // What messages carry may turn to this service as it dies, so it dies first.
  std::unique_lock<std::mutex> lock(mutex_);
  const std::list<Message> undelivered = pending_.RemoveAll();
  lock.unlock();
}

void AsioEventService::Post(MessageHandler* handler, unsigned int id,
                            boost::shared_ptr<MessageData> data, bool time_sensitive) {
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    pending_.Add(Message{handler, id, std::move(data)}, time_sensitive);
    if (thread_ == std::this_thread::get_id()) {
      return;  // Run() looks for messages after whatever it runs
    }
  }
  WakeThread();
}

void AsioEventService::PostDelayed(int delay_ms, MessageHandler* handler, unsigned int id,
                                   boost::shared_ptr<MessageData> data) {
  if (delay_ms <= 0) {
    Post(handler, id, std::move(data), false);
    return;
  }
  const std::lock_guard<std::mutex> lock(mutex_);
  pending_.AddDelayed(Message{handler, id, std::move(data)},
                      steady_clock::now() + Scaled(delay_ms));
  ArmTimer();
}

void AsioEventService::Clear(MessageHandler* handler, unsigned int id,
                             std::list<Message>* removed) {
  std::list<Message> dropped;  // dies without the lock: see the destructor
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    dropped = pending_.Remove(handler, id);
  }
  if (removed != nullptr) {
    removed->splice(removed->end(), dropped);
  }
}

void AsioEventService::PostTask(std::function<void()> task) {
  Post(&task_runner, 0, boost::make_shared<Task>(std::move(task)), false);
}

void AsioEventService::PostTaskAfter(std::chrono::milliseconds delay, std::function<void()> task) {
  auto timer = std::make_shared<boost::asio::steady_timer>(context_, delay);
  timer->async_wait(
      [this, timer, task = std::move(task)](const boost::system::error_code&) mutable {
        PostTask(std::move(task));  // not run here: the thread may be within WaitUntil()
      });
}

void AsioEventService::Run() {
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    thread_ = std::this_thread::get_id();
  }
  while (!is_stopped_) {
    Guarded([this] { HasMessage() ? context_.poll_one() : context_.run_one(); });
    for (int i = 0; i < kMostInARow && !is_stopped_ && HasMessage(); ++i) {
      Guarded([this] { DeliverNext(); });
    }
  }
}

void AsioEventService::Stop() {
  is_stopped_ = true;
  WakeThread();
}

bool AsioEventService::WaitUntil(TimePoint deadline, const std::function<bool()>& is_over) {
  while (!is_over() && steady_clock::now() < deadline) {
    Guarded([&] { context_.run_one_until(deadline); });
  }
  return is_over();
}

template <class Step>
void AsioEventService::Guarded(Step step) {
  try {
    step();
  } catch (const std::exception& error) {
    SYS_LOG(kLogError, "an exception left a message handler or task: %s", error.what());
  } catch (...) {
    SYS_LOG(kLogError, "an unknown exception left a message handler or task");
  }
}

std::chrono::nanoseconds AsioEventService::Scaled(int delay_ms) const {
  using Milliseconds = std::chrono::duration<double, std::milli>;
  // However slow the clock: a time that neither wraps around nor ever comes.
  constexpr Milliseconds kNever = std::chrono::hours(24 * 365 * 10);
  return std::chrono::duration_cast<std::chrono::nanoseconds>(
      std::min(Milliseconds(delay_ms / clock_scale_), kNever));
}

/// Has Run() go round once more, from wherever it waits.
void AsioEventService::WakeThread() {
  boost::asio::post(context_, [] {});
}

bool AsioEventService::HasMessage() {
  const std::lock_guard<std::mutex> lock(mutex_);
  return pending_.HasNext();
}

void AsioEventService::DeliverNext() {
  std::optional<Message> message;
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    message = pending_.TakeNext();
  }
  if (message) {
    message->handler->OnMessage(&*message);
  }
}

/// Sets the timer to the delayed message that is due first. The lock is held.
void AsioEventService::ArmTimer() {
  const auto due = pending_.NextDue();
  if (!due || (armed_for_ && *armed_for_ <= *due)) {
    return;
  }
  armed_for_ = due;
  timer_.expires_at(*due);
  timer_.async_wait([this](const boost::system::error_code& error) {
    if (!error) {
      OnTimer();
    }
  });
}

void AsioEventService::OnTimer() {
  const std::lock_guard<std::mutex> lock(mutex_);
  armed_for_.reset();
  pending_.TakeDue(steady_clock::now());
  ArmTimer();
}

double ClockScaleFromEnvironment() {
  const char* text = std::getenv("TARVEX_CLOCK_SCALE");
  if (text == nullptr || *text == '\0') {
    return 1.0;
  }
  char* end = nullptr;
  const double scale = std::strtod(text, &end);
  if (*end != '\0' || !IsUsableScale(scale)) {
    SYS_LOG(kLogError, "TARVEX_CLOCK_SCALE is not a number above 0: %s", text);
    return 1.0;
  }
  return scale;
}

}  // namespace tarvex
