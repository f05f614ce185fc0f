// The broker's side of MQTT, step by step, as a test's script has it: in the version of the
// CONNECT that it has read.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace agent {

/// A control packet as it was read.
struct MqttPacket {
  int type = 0;   // 1 CONNECT, 3 PUBLISH, 4 PUBACK, 8 SUBSCRIBE, 14 DISCONNECT
  int flags = 0;  // the lower half of the first byte
  std::string body;
};

struct ReadPublish {
  int message_id = 0;
  bool retain = false;
  std::string topic;
  std::string properties;  // bytes
  std::string payload;
};

struct ReadConnect {
  int version = 0;  // 5, or 4 for MQTT 3.1.1
  bool clean_start = false;
  bool will_retain = false;
  int keep_alive_s = 0;
  std::string client_id;
  std::string will_topic;
  std::string will_payload;
  std::string username;
  std::string password;
};

/// One accepted connection. Every read fails the test after ten seconds.
class BrokerSession {
 public:
  explicit BrokerSession(int socket) : socket_(socket) {}
  ~BrokerSession();
  BrokerSession(BrokerSession&& other) noexcept : socket_(other.socket_), is_5_(other.is_5_) {
    other.socket_ = -1;
  }
  BrokerSession(const BrokerSession&) = delete;
  BrokerSession& operator=(const BrokerSession&) = delete;
  BrokerSession& operator=(BrokerSession&&) = delete;

  ReadConnect ExpectConnect();
  void SendConnack(int reason_code);
  /// As a broker answers that does not know the version of the CONNECT.
  void SendConnackOf311(int return_code);

  /// @return the filter, a blank, and the options as a number.
  /// @param granted reason code of the answer.
  std::string ExpectSubscribe(int granted = 1);

  /// CONNECT and SUBSCRIBE, both granted.
  void LetIn();

  ReadPublish ExpectPublish();
  void SendPuback(int message_id, int reason_code);
  void SendPublish(const std::string& topic, const std::string& payload,
                   const std::string& properties = "", bool retain = false);

  void SendDisconnect(int reason_code);

  MqttPacket Read();
  void Close();

 private:
  void Send(int first_byte, const std::string& body);
  std::string ReadBytes(std::size_t count);

  int socket_;
  bool is_5_ = true;
};

/// Listens on 127.0.0.1, on a port of its own.
class ScriptedBroker {
 public:
  ScriptedBroker();
  ~ScriptedBroker();
  ScriptedBroker(const ScriptedBroker&) = delete;
  ScriptedBroker& operator=(const ScriptedBroker&) = delete;

  int port() const { return port_; }
  BrokerSession Accept();

  /// Whether a connection waits to be accepted.
  bool HasCaller() const;

 private:
  int socket_;
  int port_ = 0;
};

}  // namespace agent
