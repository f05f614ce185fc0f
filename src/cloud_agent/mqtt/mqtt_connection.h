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
#include <vector>

#include "cloud_agent/mqtt/broker_turns.h"
#include "cloud_agent/mqtt/denial_watch.h"
#include "cloud_agent/mqtt/link.h"
#include "cloud_agent/mqtt/mqtt_reasons.h"
#include "cloud_agent/mqtt/tls_context.h"

struct mosquitto;

namespace agent {

struct BrokerOptions {
  std::vector<BrokerAddress> addresses = {BrokerAddress()};  ///< at least one
  std::optional<MqttVersion> version;                        ///< empty: found out for each
  std::string client_id;
  std::string username;  ///< empty: none is sent
  std::string password;
  bool use_tls = false;
  TlsFiles tls;
  int keep_alive_s = 10;      ///< 5 to 65535
  int answer_timeout_s = 10;  ///< for the broker to let the agent in, and then to subscribe it
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
  MqttConnection(const BrokerOptions& options, const BrokerTurns::Attempt& attempt,
                 Handlers handlers);
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

  /// What the connection shows of the version that it was made with; once it is over.
  VersionFinding Finding() const { return finding_; }

  /// The topic of a publication that the broker may have denied by ending the connection, as one
  /// of MQTT 3.1.1 does; empty without one. Once the connection is over.
  std::string DeniedTopic() const { return denied_topic_; }

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
  void SetCallbacks();
  ConnectStage Stage() const;
  bool GoesOn(int error, ConnectStage stage);
  void Await(ConnectStage stage);
  void OnConnack(int code);
  void OnSuback(int code);
  void OnDisconnect(int reason_code);
  std::string Explained(int error, ConnectStage stage);

  const BrokerOptions options_;
  const BrokerTurns::Attempt attempt_;
  const Handlers handlers_;
  std::optional<TlsContext> tls_;  // where TLS is used; outlives the client
  mosquitto* client_ = nullptr;
  // Held while the library reads or writes; recursive, because handlers publish. Guards
  // what follows.
  mutable std::recursive_mutex driving_;
  bool may_read_ = true;
  std::string error_;
  std::string complaint_;  // the library's latest
  bool was_taken_over_ = false;
  ConnectStage stage_ = ConnectStage::kTcp;            // up to kConnack: at least this
  std::chrono::steady_clock::time_point waits_since_;  // before kReady, for the next answer
  VersionFinding finding_ = VersionFinding::kNothing;
  DenialWatch denial_watch_;  // under MQTT 3.1.1
  std::string denied_topic_;
};

}  // namespace agent
