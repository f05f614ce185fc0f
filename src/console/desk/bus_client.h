// The console's connection to the device bus: it hears what is announced there, and asks
// the cameras.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include <nats/nats.h>
#include <boost/asio/io_context.hpp>
#include <boost/asio/steady_timer.hpp>

#include "console/passports/passport.h"
#include "platform/nats_link.h"

namespace console {

/// Serves several cameras that share a bus server, each with a subject prefix of its own.
/// All but the library's own threads is the context's. Reconnects by itself.
class BusClient {
 public:
  enum class Asked { kAnswered, kNobody, kTimedOut, kNotConnected };
  using OnAnswer = std::function<void(Asked outcome, const std::string& answer)>;
  /// @param at_us when it arrived.
  using OnMessage = std::function<void(const std::string& body, Time_us at_us)>;
  /// Answers a request of others.
  using Serve = std::function<std::string(const std::string& request)>;

  /// Begins to connect. Throws std::runtime_error when there can be no connection.
  BusClient(boost::asio::io_context& context, std::function<void(bool is_connected)> on_state);
  ~BusClient();
  BusClient(const BusClient&) = delete;
  BusClient& operator=(const BusClient&) = delete;

  bool IsConnected() const { return link_->IsConnected(); }

  /// Hears a subject from now on. Only for topics: a queue that is listened to would look
  /// as if somebody served it.
  void Listen(const std::string& subject, OnMessage on_message);

  /// Serves a queue from now on.
  void ServeQueue(const std::string& subject, Serve serve);

  /// Asks a queue. @param on_answer called once, later.
  void Ask(const std::string& subject, const std::string& question,
           std::chrono::milliseconds timeout, OnAnswer on_answer);

 private:
  struct Mailbox;
  struct Route;
  struct Question;
  void Subscribe(const std::string& subject, bool is_queue,
                 std::function<void(natsMsg* message)> on_message);
  void Answered(const std::string& inbox, Asked outcome, const std::string& answer);
  static void OnNatsMessage(natsConnection*, natsSubscription*, natsMsg* message, void* route);
  static void OnComplete(void* route);

  boost::asio::io_context& context_;
  std::shared_ptr<Mailbox> mailbox_;
  std::string inbox_;  // what the subjects of answers begin with
  std::uint64_t last_question_ = 0;
  std::map<std::string, std::unique_ptr<Question>> questions_;  // by subject of the answer
  std::vector<natsSubscription*> subscriptions_;
  std::shared_ptr<tarvex::NatsLink> link_;
};

}  // namespace console
