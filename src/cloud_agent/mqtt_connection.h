// One connection attempt to an MQTT broker, from the first packet to the last.
//
// A new object is made for every attempt, so that nothing of an earlier connection
// is ever retransmitted or acknowledged late.
#pragma once

#include <string>

#include "cloud_agent/link.h"

struct mosquitto;

namespace agent {

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
  int keep_alive_s = 10;  ///< 5 to 65535
  std::string will_topic;
  std::string will_payload;                                ///< retained
  std::string request_filter;                              ///< subscribed to once connected
  std::size_t max_request_bytes = std::size_t{256} << 10;  ///< larger: without payload
};

/// Hears of one connection; called from within MqttConnection::Loop().
class MqttConnectionEvents {
 public:
  virtual ~MqttConnectionEvents() {}

  /// Connected and subscribed.
  virtual void OnReady() = 0;
  virtual void OnPuback(int message_id, int reason_code) = 0;
  virtual void OnRequestArrived(InboundRequest request) = 0;
};

class MqttConnection {
 public:
  /// Copies the options, not the events. Throws std::runtime_error when the library
  /// cannot make a client of the options.
  MqttConnection(const BrokerOptions& options, MqttConnectionEvents* events);
  ~MqttConnection();
  MqttConnection(const MqttConnection&) = delete;
  MqttConnection& operator=(const MqttConnection&) = delete;

  /// Begins to connect; blocks for the look-up of the host's name.
  /// @return empty, or why not.
  std::string Open();

  /// Waits for traffic and deals with it, for about `timeout_ms` at the most.
  /// @return false when the connection is over; LastError() says why.
  bool Loop(int timeout_ms);
  const std::string& LastError() const { return error_; }

  /// Sends with QoS 1. Callable from any thread, and from within the events.
  /// @return MOSQ_ERR_SUCCESS, or the library's error.
  int Publish(const OutboundMessage& message, int* message_id);

  /// Says goodbye; Loop() then returns false soon.
  void Disconnect();

 private:
  void Configure();
  void OnConnack(int reason_code);
  void OnSuback(int granted);
  void OnDisconnect(int reason_code);
  std::string Explained(int error) const;

  const BrokerOptions options_;
  MqttConnectionEvents* const events_;
  mosquitto* client_ = nullptr;
  std::string error_;
  std::string complaint_;  // the library's latest
};

}  // namespace agent
