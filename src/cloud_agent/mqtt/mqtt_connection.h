// One connection attempt to an MQTT broker, from the first packet to the last.
//
// A new object is made for every attempt, so that nothing of an earlier connection
// is ever retransmitted or acknowledged late.
#pragma once

#include <chrono>
#include <functional>
#include <mutex>
#include <optional>
#include <string>

#include "cloud_agent/mqtt/link.h"

struct mosquitto;

namespace agent {

/// An MQTT 5 reason code in words, such as "Not authorized (0x87)".
std::string ReasonText(int reason_code);

struct BrokerOptions {
  std::string host = "127.0.0.1";
  int port = 1883;
  std::string client_id;
  std::string username;  ///< empty: none is sent
  std::string password;
  bool use_tls = false;
  std::string ca_file;    ///< empty: the system's certificates
  std::string cert_file;  ///< with key_file, or neither
  std::string key_file;
  int keep_alive_s = 10;         ///< 5 to 65535
  int subscribe_timeout_s = 10;  ///< for the broker's answer to the subscription
  std::string will_topic;
  std::string will_payload;                                ///< retained
  std::string request_filter;                              ///< subscribed to once connected
  std::size_t max_request_bytes = std::size_t{256} << 10;  ///< larger: the beginning only
};

/// Opened and driven on the network thread; once it is ready, another thread may read and
/// publish as well.
class MqttConnection {
 public:
  /// What a connection reports; called from within Loop() or Read(), never at the same time.
  struct Handlers {
    std::function<void(int subscription_code)> on_ready;  ///< connected, subscription answered
    std::function<void(int message_id, int reason_code)> on_puback;
    std::function<void(InboundRequest request)> on_request;
  };

  /// Throws std::runtime_error when the library cannot make a client of the options.
  MqttConnection(const BrokerOptions& options, Handlers handlers);
  ~MqttConnection();
  MqttConnection(const MqttConnection&) = delete;
  MqttConnection& operator=(const MqttConnection&) = delete;

  /// Begins to connect; blocks for the look-up of the host's name.
  /// @return empty, or why not.
  std::string Open();

  /// Waits for traffic and deals with it, for about `timeout_ms` at the most.
  /// @return false when the connection is over; LastError() says why.
  bool Loop(int timeout_ms);
  std::string LastError() const;

  /// Deals with what has come, and writes what waits for the socket. Any thread.
  /// @return false as Loop().
  bool Read();

  /// Whether more waits for the socket than Read() and Publish() could write. Any thread.
  bool WantsToWrite() const;

  /// The socket; negative without one. To be called from within a handler.
  int Socket() const;

  /// After this Read() does nothing. Any thread.
  void EndReading();

  /// Keeps handlers from being called on other threads meanwhile.
  std::unique_lock<std::recursive_mutex> Hold() const {
    return std::unique_lock<std::recursive_mutex>(driving_);
  }

  /// Whether the broker ended it because another client came with the same client id.
  bool WasTakenOver() const { return was_taken_over_; }

  /// Sends with QoS 1. Any thread, also from within a handler.
  /// @param message_id set where the library took the message over: it is on its way, or the
  ///                   connection is about to be over.
  /// @return MOSQ_ERR_SUCCESS, or the library's error.
  int Publish(const OutboundMessage& message, int* message_id);

  /// Sends DISCONNECT; Loop() then returns false soon.
  void Disconnect();

 private:
  void Configure();
  bool GoesOn(int error);
  void OnConnack(int reason_code);
  void OnDisconnect(int reason_code);
  std::string Explained(int error) const;

  const BrokerOptions options_;
  const Handlers handlers_;
  mosquitto* client_ = nullptr;
  // Held while the library reads or writes; recursive, because handlers publish. Guards
  // what follows.
  mutable std::recursive_mutex driving_;
  bool may_read_ = true;
  std::string error_;
  std::string complaint_;  // the library's latest
  bool was_taken_over_ = false;
  std::optional<std::chrono::steady_clock::time_point> subscribe_deadline_;  // while it waits
};

}  // namespace agent
