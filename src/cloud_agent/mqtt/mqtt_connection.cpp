#include "cloud_agent/mqtt/mqtt_connection.h"

#include <mosquitto.h>
#include <mqtt_protocol.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <stdexcept>
#include <system_error>
#include <utility>

namespace agent {
namespace {

using Clock = std::chrono::steady_clock;

constexpr int kQos = 1;
constexpr int kSessionTakenOver = 0x8E;
// Of a request that is too large: its id may be there.
constexpr std::size_t kBeginning_bytes = 1024;
constexpr char kSystemCertificates[] = "/etc/ssl/certs";

class LibraryUse {
 public:
  LibraryUse() { mosquitto_lib_init(); }
  // Never cleaned up: the network thread may hang in a name look-up when the process ends.
};

std::string ErrorText(int error) {
  if (error == MOSQ_ERR_KEEPALIVE) {
    return "no answer within the keep-alive";
  }
  if (error == MOSQ_ERR_ERRNO) {
    return std::generic_category().message(errno);
  }
  std::string text = mosquitto_strerror(error);
  if (!text.empty() && text.back() == '.') {
    text.pop_back();
  }
  return text;
}

void Require(int error, const char* what) {
  if (error != MOSQ_ERR_SUCCESS) {
    throw std::runtime_error(std::string(what) + ": " + ErrorText(error));
  }
}

InboundRequest ToRequest(const mosquitto_message& message, const mosquitto_property* properties,
                         std::size_t max_bytes) {
  InboundRequest request;
  request.topic = message.topic;
  request.size = message.payloadlen > 0 ? static_cast<std::size_t>(message.payloadlen) : 0;
  if (request.size > 0) {
    const std::size_t kept =
        request.size <= max_bytes ? request.size : std::min(request.size, kBeginning_bytes);
    request.payload.assign(static_cast<const char*>(message.payload), kept);
  }
  request.received_at = Clock::now();
  request.retained = message.retain;
  std::uint32_t expiry_s = 0;
  if (mosquitto_property_read_int32(properties, MQTT_PROP_MESSAGE_EXPIRY_INTERVAL, &expiry_s,
                                    false) != nullptr) {
    request.expires_in = std::chrono::seconds(expiry_s);
  }
  char* topic = nullptr;
  if (mosquitto_property_read_string(properties, MQTT_PROP_RESPONSE_TOPIC, &topic, false) !=
      nullptr) {
    request.response_topic = topic;
    std::free(topic);
  }
  void* data = nullptr;
  std::uint16_t length = 0;
  if (mosquitto_property_read_binary(properties, MQTT_PROP_CORRELATION_DATA, &data, &length,
                                     false) != nullptr) {
    request.has_correlation_data = true;
    if (length > 0) {
      request.correlation_data.assign(static_cast<const char*>(data), length);
    }
    std::free(data);
  }
  return request;
}

}  // namespace

std::string ReasonText(int reason_code) {
  char number[16];
  std::snprintf(number, sizeof(number), " (0x%02x)", static_cast<unsigned>(reason_code));
  return mosquitto_reason_string(reason_code) + std::string(number);
}

MqttConnection::MqttConnection(const BrokerOptions& options, Handlers handlers)
    : options_(options), handlers_(std::move(handlers)) {
  static const LibraryUse library_use;
  client_ = mosquitto_new(options_.client_id.c_str(), true, this);
  if (client_ == nullptr) {
    throw std::runtime_error("no client can be made: " + ErrorText(MOSQ_ERR_ERRNO));
  }
  try {
    Configure();
  } catch (...) {
    mosquitto_destroy(client_);
    throw;
  }
}

MqttConnection::~MqttConnection() { mosquitto_destroy(client_); }

void MqttConnection::Configure() {
  Require(mosquitto_int_option(client_, MOSQ_OPT_PROTOCOL_VERSION, MQTT_PROTOCOL_V5), "MQTT 5");
  // Without it a QoS 1 round trip costs tens of milliseconds.
  Require(mosquitto_int_option(client_, MOSQ_OPT_TCP_NODELAY, 1), "TCP_NODELAY");
  if (!options_.username.empty()) {
    Require(
        mosquitto_username_pw_set(client_, options_.username.c_str(), options_.password.c_str()),
        "user name and password");
  }
  if (options_.use_tls) {
    const auto or_null = [](const std::string& file) {
      return file.empty() ? nullptr : file.c_str();
    };
    Require(mosquitto_tls_set(client_, or_null(options_.ca_file),
                              options_.ca_file.empty() ? kSystemCertificates : nullptr,
                              or_null(options_.cert_file), or_null(options_.key_file), nullptr),
            "TLS");
  }
  Require(mosquitto_will_set_v5(client_, options_.will_topic.c_str(),
                                static_cast<int>(options_.will_payload.size()),
                                options_.will_payload.data(), kQos, true, nullptr),
          "will");
  mosquitto_connect_v5_callback_set(
      client_, [](mosquitto*, void* self, int reason_code, int, const mosquitto_property*) {
        static_cast<MqttConnection*>(self)->OnConnack(reason_code);
      });
  mosquitto_subscribe_v5_callback_set(client_, [](mosquitto*, void* self, int, int count,
                                                  const int* granted, const mosquitto_property*) {
    auto* connection = static_cast<MqttConnection*>(self);
    connection->subscribe_deadline_.reset();
    connection->handlers_.on_ready(count > 0 ? granted[0] : kFirstFailureCode);
  });
  mosquitto_disconnect_v5_callback_set(
      client_, [](mosquitto*, void* self, int reason_code, const mosquitto_property*) {
        static_cast<MqttConnection*>(self)->OnDisconnect(reason_code);
      });
  mosquitto_publish_v5_callback_set(client_, [](mosquitto*, void* self, int message_id,
                                                int reason_code, const mosquitto_property*) {
    static_cast<MqttConnection*>(self)->handlers_.on_puback(message_id, reason_code);
  });
  mosquitto_log_callback_set(client_, [](mosquitto*, void* self, int level, const char* text) {
    if (level == MOSQ_LOG_ERR) {
      static_cast<MqttConnection*>(self)->complaint_ = text;
    }
  });
  mosquitto_message_v5_callback_set(
      client_, [](mosquitto*, void* self, const mosquitto_message* message,
                  const mosquitto_property* properties) {
        const auto* connection = static_cast<MqttConnection*>(self);
        connection->handlers_.on_request(
            ToRequest(*message, properties, connection->options_.max_request_bytes));
      });
}

std::string MqttConnection::Open() {
  // Asynchronous, so that a broker that does not answer costs one keep-alive only.
  const int error =
      mosquitto_connect_async(client_, options_.host.c_str(), options_.port, options_.keep_alive_s);
  return error == MOSQ_ERR_SUCCESS ? "" : Explained(error);
}

// For a TLS failure the error's own text says nothing.
std::string MqttConnection::Explained(int error) const {
  return error == MOSQ_ERR_TLS && !complaint_.empty() ? complaint_ : ErrorText(error);
}

bool MqttConnection::Loop(int timeout_ms) {
  const auto lock = Hold();
  if (!GoesOn(mosquitto_loop(client_, timeout_ms, 1))) {
    return false;
  }
  if (subscribe_deadline_ && Clock::now() > *subscribe_deadline_) {
    error_ = "the broker does not answer the subscription to " + options_.request_filter + " in " +
             std::to_string(options_.subscribe_timeout_s) + " s";
    return false;
  }
  return true;
}

bool MqttConnection::Read() {
  const auto lock = Hold();
  if (!may_read_) {
    return false;
  }
  int error = mosquitto_loop_read(client_, 1);
  if (error == MOSQ_ERR_SUCCESS && mosquitto_want_write(client_)) {
    error = mosquitto_loop_write(client_, 1);
  }
  return GoesOn(error) && Socket() >= 0;
}

bool MqttConnection::GoesOn(int error) {
  if (error != MOSQ_ERR_SUCCESS && error_.empty()) {
    error_ = Explained(error);
  }
  return error == MOSQ_ERR_SUCCESS;
}

bool MqttConnection::WantsToWrite() const {
  const auto lock = Hold();
  return mosquitto_want_write(client_);
}

int MqttConnection::Socket() const { return mosquitto_socket(client_); }

void MqttConnection::EndReading() {
  const auto lock = Hold();
  may_read_ = false;
}

std::string MqttConnection::LastError() const {
  const auto lock = Hold();
  return error_;
}

void MqttConnection::OnConnack(int reason_code) {
  if (reason_code != 0) {
    error_ = "the broker refuses: " + ReasonText(reason_code);
    return;
  }
  // From here on the library would only tell of each packet, and format that each time.
  mosquitto_log_callback_set(client_, nullptr);
  subscribe_deadline_ = Clock::now() + std::chrono::seconds(options_.subscribe_timeout_s);
  // No retained request is wanted: what it asks for may be long out of date.
  const int options =
      MQTT_SUB_OPT_NO_LOCAL | MQTT_SUB_OPT_RETAIN_AS_PUBLISHED | MQTT_SUB_OPT_SEND_RETAIN_NEVER;
  mosquitto_subscribe_v5(client_, nullptr, options_.request_filter.c_str(), kQos, options, nullptr);
}

void MqttConnection::OnDisconnect(int reason_code) {
  if (reason_code == kSessionTakenOver) {
    was_taken_over_ = true;
    error_ = "another client has connected as " + options_.client_id +
             ": give each camera a serial number or --client-id of its own";
  } else if (error_.empty() && reason_code >= kFirstFailureCode) {
    error_ = "the broker disconnects: " + ReasonText(reason_code);
  }
}

int MqttConnection::Publish(const OutboundMessage& message, int* message_id) {
  mosquitto_property* properties = nullptr;
  if (message.has_correlation_data) {
    const int error = mosquitto_property_add_binary(
        &properties, MQTT_PROP_CORRELATION_DATA, message.correlation_data.data(),
        static_cast<std::uint16_t>(message.correlation_data.size()));
    if (error != MOSQ_ERR_SUCCESS) {
      return error;
    }
  }
  const auto lock = Hold();
  const int error = mosquitto_publish_v5(client_, message_id, message.topic.c_str(),
                                         static_cast<int>(message.payload.size()),
                                         message.payload.data(), kQos, message.retain, properties);
  mosquitto_property_free_all(&properties);
  return error;
}

void MqttConnection::Disconnect() {
  const auto lock = Hold();
  mosquitto_disconnect_v5(client_, 0, nullptr);
}

}  // namespace agent
