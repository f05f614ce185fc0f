// The MQTT link: keeps a connection to the broker up.
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include <boost/asio/io_context.hpp>
#include <boost/asio/posix/stream_descriptor.hpp>

#include "cloud_agent/mqtt/backoff.h"
#include "cloud_agent/mqtt/broker_turns.h"
#include "cloud_agent/mqtt/connection_ends.h"
#include "cloud_agent/mqtt/link.h"
#include "cloud_agent/mqtt/mqtt_connection.h"

namespace agent {

/// A thread of its own, the network thread, makes the connections. The event thread learns of
/// one by a posted task, and reads it and publishes on it until another task tells of its end:
/// so a message costs no change of threads. Meanwhile the network thread looks once a second,
/// for the keep-alive, and deals with what the event thread has left because it is busy. What
/// both touch stands below the mutex.
class MqttLink : public Link {
 public:
  struct Options {
    BrokerOptions broker;
    int backoff_min_ms = 3000;
    int backoff_max_ms = 30000;
  };

  /// Takes a request, and makes the responses that are to be sent at once, if any.
  using RequestTaker = std::function<std::vector<OutboundMessage>(InboundRequest)>;

  /// @param context run by the event thread; outlives the link.
  /// @param post runs a task on the event thread; callable from any thread. Tasks that
  ///             were posted must not run after the link is destroyed.
  /// @param take_request called on either thread.
  MqttLink(Options options, boost::asio::io_context& context,
           std::function<void(std::function<void()>)> post, RequestTaker take_request);

  /// Stops the link where that was not done, and waits for the network thread.
  ~MqttLink() override;

  void Start(LinkListener* listener) override;
  Publication Publish(const OutboundMessage& message) override;
  void Drop(const std::string& reason) override;
  bool Stop(const OutboundMessage& last) override;

 private:
  using Socket = boost::asio::posix::stream_descriptor;

  // The network thread.
  void Run();
  void RunConnection();
  void AwaitNext(const ConnectionEnd& end, VersionFinding finding);
  std::string Drive(MqttConnection* connection);
  bool AwaitWork(std::string* drop_reason);
  void Finish(MqttConnection* connection);
  void OnReady(const std::shared_ptr<MqttConnection>& connection, int subscription_code);
  bool IsStopping() const;

  // The thread that reads.
  void OnPuback(std::uint64_t connection_number, int message_id, int reason_code);
  void OnRequest(MqttConnection* connection, InboundRequest request);

  // The event thread.
  void AwaitReading();
  void AwaitWriting();
  bool Read();
  void Look();

  /// Runs a task on the event thread, unless the link is stopped by then.
  void PostToListener(std::function<void()> task);

  const Options options_;
  boost::asio::io_context& context_;
  const std::function<void(std::function<void()>)> post_;
  const RequestTaker take_request_;
  std::thread thread_;

  // Event thread only.
  LinkListener* listener_ = nullptr;
  std::shared_ptr<MqttConnection> connection_;  // while it stands, as far as the listener knows
  std::uint64_t connection_number_ = 0;         // of connection_
  std::shared_ptr<Socket> socket_;              // of connection_, as a descriptor of its own
  bool awaits_writing_ = false;
  bool is_stopped_ = false;

  // Network thread only.
  BrokerTurns turns_;
  ConnectionEnds ends_;
  Backoff backoff_;
  std::uint64_t last_connection_number_ = 0;
  bool was_ready_ = false;
  std::chrono::steady_clock::time_point ready_at_;

  // The thread that reads.
  std::set<int> own_;  // message ids of responses that the listener knows nothing of

  mutable std::mutex mutex_;
  std::condition_variable changed_;
  bool is_stopping_ = false;
  bool is_finished_ = false;
  bool is_to_look_ = false;             // the network thread, at the connection
  std::optional<int> last_message_id_;  // until it is acknowledged
  std::string drop_reason_;
};

}  // namespace agent
