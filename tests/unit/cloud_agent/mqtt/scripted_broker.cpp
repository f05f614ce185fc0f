#include "mqtt/scripted_broker.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <stdexcept>

#include "support/mqtt_bytes.h"

namespace agent {
namespace {

constexpr int kPatience_ms = 10000;

void WaitForInput(int socket) {
  pollfd entry{socket, POLLIN, 0};
  if (poll(&entry, 1, kPatience_ms) != 1) {
    throw std::runtime_error("the scripted broker waits in vain");
  }
}

}  // namespace

BrokerSession::~BrokerSession() { Close(); }

void BrokerSession::Close() {
  if (socket_ >= 0) {
    close(socket_);
    socket_ = -1;
  }
}

std::string BrokerSession::ReadBytes(std::size_t count) {
  std::string bytes;
  while (bytes.size() < count) {
    WaitForInput(socket_);
    char chunk[4096];
    const ssize_t got = recv(socket_, chunk, std::min(sizeof(chunk), count - bytes.size()), 0);
    if (got <= 0) {
      throw std::runtime_error("the client has closed the connection");
    }
    bytes.append(chunk, static_cast<std::size_t>(got));
  }
  return bytes;
}

MqttPacket BrokerSession::Read() {
  const auto first = static_cast<unsigned char>(ReadBytes(1)[0]);
  std::size_t length = 0;
  unsigned shift = 0;
  unsigned char digit = 0;
  do {
    digit = static_cast<unsigned char>(ReadBytes(1)[0]);
    length += static_cast<std::size_t>(digit & 0x7FU) << shift;
    shift += 7;
  } while ((digit & 0x80U) != 0);
  return {first >> 4, first & 0xF, ReadBytes(length)};
}

void BrokerSession::Send(int first_byte, const std::string& body) {
  const std::string packet = static_cast<char>(first_byte) + MqttLength(body.size()) + body;
  if (send(socket_, packet.data(), packet.size(), MSG_NOSIGNAL) !=
      static_cast<ssize_t>(packet.size())) {
    throw std::runtime_error("the scripted broker cannot send");
  }
}

ReadConnect BrokerSession::ExpectConnect() {
  const MqttPacket packet = Read();
  if (packet.type != 1) {
    throw std::runtime_error("expected CONNECT, got type " + std::to_string(packet.type));
  }
  MqttFields fields(packet.body);
  ReadConnect connect;
  const std::string name = fields.String();
  connect.version = fields.Byte();
  is_5_ = connect.version == 5;
  if (name != "MQTT" || (!is_5_ && connect.version != 4)) {
    throw std::runtime_error("expected MQTT 5 or 3.1.1");
  }
  const int flags = fields.Byte();
  connect.clean_start = (flags & 0x02) != 0;
  connect.will_retain = (flags & 0x20) != 0;
  connect.keep_alive_s = fields.Number();
  if (is_5_) {
    fields.Properties();
  }
  connect.client_id = fields.String();
  if ((flags & 0x04) != 0) {
    if (is_5_) {
      fields.Properties();
    }
    connect.will_topic = fields.String();
    connect.will_payload = fields.String();
  }
  connect.username = (flags & 0x80) != 0 ? fields.String() : "";
  connect.password = (flags & 0x40) != 0 ? fields.String() : "";
  return connect;
}

void BrokerSession::SendConnack(int reason_code) {
  Send(0x20, std::string{0, static_cast<char>(reason_code)} + (is_5_ ? MqttLength(0) : ""));
}

void BrokerSession::SendConnackOf311(int return_code) {
  Send(0x20, std::string{0, static_cast<char>(return_code)});
}

std::string BrokerSession::ExpectSubscribe(int granted) {
  const MqttPacket packet = Read();
  if (packet.type != 8) {
    throw std::runtime_error("expected SUBSCRIBE, got type " + std::to_string(packet.type));
  }
  MqttFields fields(packet.body);
  const int message_id = fields.Number();
  if (is_5_) {
    fields.Properties();
  }
  const std::string filter = fields.String();
  const int options = fields.Byte();
  Send(0x90, MqttNumber(message_id) + (is_5_ ? MqttLength(0) : "") + static_cast<char>(granted));
  return filter + " " + std::to_string(options);
}

void BrokerSession::LetIn() {
  ExpectConnect();
  SendConnack(0);
  ExpectSubscribe();
}

ReadPublish BrokerSession::ExpectPublish() {
  const MqttPacket packet = Read();
  if (packet.type != 3 || (packet.flags & 0x06) != 0x02) {
    throw std::runtime_error("expected PUBLISH with QoS 1, got type " +
                             std::to_string(packet.type));
  }
  MqttFields fields(packet.body);
  ReadPublish publish;
  publish.retain = (packet.flags & 0x01) != 0;
  publish.topic = fields.String();
  publish.message_id = fields.Number();
  publish.properties = is_5_ ? fields.Properties() : "";
  publish.payload = fields.Rest();
  return publish;
}

void BrokerSession::SendPuback(int message_id, int reason_code) {
  Send(0x40,
       MqttNumber(message_id) + (is_5_ ? std::string{static_cast<char>(reason_code), 0} : ""));
}

void BrokerSession::SendDisconnect(int reason_code) {
  Send(0xE0, std::string{static_cast<char>(reason_code), 0});
}

void BrokerSession::SendPublish(const std::string& topic, const std::string& payload,
                                const std::string& properties, bool retain) {
  Send(retain ? 0x31 : 0x30,
       MqttString(topic) + (is_5_ ? MqttLength(properties.size()) : "") + properties + payload);
}

ScriptedBroker::ScriptedBroker() : socket_(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
  sockaddr_in address = {};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t length = sizeof(address);
  if (bind(socket_, reinterpret_cast<sockaddr*>(&address), length) != 0 ||
      listen(socket_, 8) != 0 ||
      getsockname(socket_, reinterpret_cast<sockaddr*>(&address), &length) != 0) {
    throw std::runtime_error("the scripted broker cannot listen");
  }
  port_ = ntohs(address.sin_port);
}

ScriptedBroker::~ScriptedBroker() { close(socket_); }

BrokerSession ScriptedBroker::Accept() {
  WaitForInput(socket_);
  const int accepted = accept4(socket_, nullptr, nullptr, SOCK_CLOEXEC);
  if (accepted < 0) {
    throw std::runtime_error("the scripted broker cannot accept");
  }
  return BrokerSession(accepted);
}

bool ScriptedBroker::HasCaller() const {
  pollfd entry{socket_, POLLIN, 0};
  return poll(&entry, 1, 0) == 1;
}

}  // namespace agent
