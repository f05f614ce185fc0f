#include "cloud_agent/mqtt/mqtt_connection.h"

#include <mosquitto.h>
#include <mqtt_protocol.h>

#include <sys/socket.h>
#include <cerrno>
#include <chrono>
#include <stdexcept>
#include <utility>

#include "cloud_agent/mqtt/mqtt_messages.h"

namespace agent {
namespace {

using Clock = std::chrono::steady_clock;

constexpr int kQos = 1;
constexpr int kSessionTakenOver = 0x8E;

class LibraryUse {
 public:
  LibraryUse() { mosquitto_lib_init(); }
  // Never cleaned up: the network thread may hang in a name look-up when the process ends.
};

void Require(int error, const char* what) {
  if (error != MOSQ_ERR_SUCCESS) {
    throw std::runtime_error(std::string(what) + ": " + ErrorText(error));
  }
}

}  // namespace

MqttConnection::MqttConnection(const BrokerOptions& options, const BrokerTurns::Attempt& attempt,
                               Handlers handlers)
    : options_(options), attempt_(attempt), handlers_(std::move(handlers)) {
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
  Require(
      mosquitto_int_option(client_, MOSQ_OPT_PROTOCOL_VERSION, static_cast<int>(attempt_.version)),
      VersionText(attempt_.version));
  // Without it a QoS 1 round trip costs tens of milliseconds.
  Require(mosquitto_int_option(client_, MOSQ_OPT_TCP_NODELAY, 1), "TCP_NODELAY");
  if (!options_.username.empty()) {
    Require(
        mosquitto_username_pw_set(client_, options_.username.c_str(), options_.password.c_str()),
        "user name and password");
  }
  if (options_.use_tls) {
    tls_.emplace(options_.tls, attempt_.address.host);
    Require(mosquitto_int_option(client_, MOSQ_OPT_SSL_CTX_WITH_DEFAULTS, 0), "TLS");
    Require(mosquitto_void_option(client_, MOSQ_OPT_SSL_CTX, tls_->handle()), "TLS");
  }
  Require(mosquitto_will_set_v5(client_, options_.will_topic.c_str(),
                                static_cast<int>(options_.will_payload.size()),
                                options_.will_payload.data(), kQos, true, nullptr),
          "will");
  SetCallbacks();
}

void MqttConnection::SetCallbacks() {
  using Properties = const mosquitto_property*;
  mosquitto_connect_v5_callback_set(client_, [](mosquitto*, void* self, int code, int, Properties) {
    static_cast<MqttConnection*>(self)->OnConnack(code);
  });
  mosquitto_subscribe_v5_callback_set(
      client_, [](mosquitto*, void* self, int, int count, const int* granted, Properties) {
        static_cast<MqttConnection*>(self)->OnSuback(count > 0 ? granted[0] : kFirstFailureCode);
      });
  mosquitto_disconnect_v5_callback_set(client_, [](mosquitto*, void* self, int code, Properties) {
    static_cast<MqttConnection*>(self)->OnDisconnect(code);
  });
  mosquitto_publish_v5_callback_set(
      client_, [](mosquitto*, void* self, int message_id, int reason_code, Properties) {
        auto* connection = static_cast<MqttConnection*>(self);
        connection->denial_watch_.OnAnswered(message_id);
        connection->handlers_.on_puback(message_id, reason_code);
      });
  mosquitto_log_callback_set(client_, [](mosquitto*, void* self, int level, const char* text) {
    if (level == MOSQ_LOG_ERR) {
      static_cast<MqttConnection*>(self)->complaint_ = text;
    }
  });
  mosquitto_message_v5_callback_set(
      client_, [](mosquitto*, void* self, const mosquitto_message* message, Properties properties) {
        const auto* connection = static_cast<MqttConnection*>(self);
        connection->handlers_.on_request(
            ToRequest(*message, properties, connection->options_.max_request_bytes));
      });
}

std::string MqttConnection::Open() {
  Await(ConnectStage::kTcp);
  // Asynchronous, so that a broker that does not answer costs one time-out only.
  const int error = mosquitto_connect_async(client_, attempt_.address.host.c_str(),
                                            attempt_.address.port, options_.keep_alive_s);
  return error == MOSQ_ERR_SUCCESS ? "" : Explained(error, ConnectStage::kTcp);
}

void MqttConnection::Await(ConnectStage stage) {
  stage_ = stage;
  waits_since_ = Clock::now();
}

/// How far it has come, as far as the library does not tell.
ConnectStage MqttConnection::Stage() const {
  if (stage_ > ConnectStage::kConnack || Socket() < 0) {
    return stage_;
  }
  const bool is_tls_missing = tls_ && !tls_->is_done();
  if (!is_tls_missing && !mosquitto_want_write(client_)) {
    return ConnectStage::kConnack;
  }
  sockaddr_storage peer = {};
  socklen_t length = sizeof(peer);
  const bool is_connected = getpeername(Socket(), reinterpret_cast<sockaddr*>(&peer), &length) == 0;
  return is_connected && is_tls_missing ? ConnectStage::kTls : ConnectStage::kTcp;
}

std::string MqttConnection::Explained(int error, ConnectStage stage) {
  const bool is_closed = error == MOSQ_ERR_CONN_LOST || error == MOSQ_ERR_NO_CONN ||
                         (error == MOSQ_ERR_ERRNO && errno != ETIMEDOUT);
  const bool is_silent = error == MOSQ_ERR_KEEPALIVE;
  const std::string text = ErrorText(error);
  if (const std::string failure = tls_ && !is_silent ? tls_->Failure() : ""; !failure.empty()) {
    return failure;
  }
  if (error == MOSQ_ERR_TLS && !complaint_.empty()) {
    return complaint_;  // the error's own text says nothing
  }
  if (is_silent && stage != ConnectStage::kReady) {
    const auto waited = std::chrono::round<std::chrono::seconds>(Clock::now() - waits_since_);
    return SilenceText(stage, static_cast<int>(waited.count()), options_.use_tls);
  }
  if (stage == ConnectStage::kConnack && !is_silent && finding_ == VersionFinding::kNothing) {
    finding_ = VersionFinding::kDoubted;
    return is_closed ? ClosedText(stage, attempt_.version, options_.use_tls)
                     : std::string("what answers CONNECT does not speak ") +
                           VersionText(attempt_.version) + ": " + text;
  }
  if (is_closed && stage == ConnectStage::kSubscribe) {
    return ClosedText(stage, attempt_.version, options_.use_tls);
  }
  if (is_closed && stage == ConnectStage::kReady) {
    denied_topic_ = denial_watch_.DeniedTopic(Clock::now());
    return denied_topic_.empty() ? text : "the broker ended the connection";
  }
  return text;
}

bool MqttConnection::Loop(int timeout_ms) {
  const auto lock = Hold();
  const ConnectStage stage = Stage();
  if (!GoesOn(mosquitto_loop(client_, timeout_ms, 1), stage)) {
    return false;
  }
  if (tls_ && tls_->socket_error() != 0) {  // the library goes on for ever
    errno = tls_->socket_error();
    return GoesOn(MOSQ_ERR_ERRNO, ConnectStage::kTls);
  }
  return stage_ == ConnectStage::kReady ||
         Clock::now() < waits_since_ + std::chrono::seconds(options_.answer_timeout_s) ||
         GoesOn(MOSQ_ERR_KEEPALIVE, Stage());
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
  return GoesOn(error, ConnectStage::kReady) && Socket() >= 0;
}

bool MqttConnection::GoesOn(int error, ConnectStage stage) {
  if (error != MOSQ_ERR_SUCCESS && error_.empty()) {
    error_ = Explained(error, stage);
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

void MqttConnection::OnConnack(int code) {
  finding_ =
      RefusesVersion(attempt_.version, code) ? VersionFinding::kRefused : VersionFinding::kSpoken;
  if (code != 0) {
    error_ = RefusalText(attempt_.version, code);
    return;
  }
  // From here on the library would only tell of each packet, and format that each time.
  mosquitto_log_callback_set(client_, nullptr);
  Await(ConnectStage::kSubscribe);
  // No retained request is wanted: what it asks for may be long out of date. MQTT 3.1.1 has no
  // such options: there the retained ones come, and are marked.
  const int options = attempt_.version == MqttVersion::k5
                          ? MQTT_SUB_OPT_NO_LOCAL | MQTT_SUB_OPT_RETAIN_AS_PUBLISHED |
                                MQTT_SUB_OPT_SEND_RETAIN_NEVER
                          : 0;
  mosquitto_subscribe_v5(client_, nullptr, options_.request_filter.c_str(), kQos, options, nullptr);
}

void MqttConnection::OnSuback(int code) {
  stage_ = ConnectStage::kReady;
  handlers_.on_ready(code);
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
  const bool is_5 = attempt_.version == MqttVersion::k5;
  mosquitto_property* properties = nullptr;
  const int property_error = is_5 ? ToProperties(message, &properties) : MOSQ_ERR_SUCCESS;
  if (property_error != MOSQ_ERR_SUCCESS) {
    return property_error;
  }
  const auto lock = Hold();
  const int error = mosquitto_publish_v5(client_, message_id, message.topic.c_str(),
                                         static_cast<int>(message.payload.size()),
                                         message.payload.data(), kQos, message.retain, properties);
  mosquitto_property_free_all(&properties);
  if (error == MOSQ_ERR_SUCCESS && !is_5) {
    denial_watch_.OnPublished(*message_id, message.topic, Clock::now());
  }
  return error;
}

void MqttConnection::Disconnect() {
  const auto lock = Hold();
  mosquitto_disconnect_v5(client_, 0, nullptr);
}

}  // namespace agent
