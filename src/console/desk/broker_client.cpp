#include "console/desk/broker_client.h"

#include <mosquitto.h>
#include <mqtt_protocol.h>

#include <cstdlib>
#include <stdexcept>
#include <utility>

#include <boost/asio/post.hpp>

#include "platform/log.h"
#include "platform/trace.h"

namespace console {
namespace {

constexpr int kQos = 1;
constexpr int kKeepAlive_s = 10;
// For as long a broker keeps what a console that is away has not got.
constexpr std::uint32_t kSession_s = 600;

void Require(int error, const char* what) {
  if (error != MOSQ_ERR_SUCCESS) {
    throw std::runtime_error(std::string(what) + ": " + mosquitto_strerror(error));
  }
}

BrokerMessage ToMessage(const mosquitto_message& arrived, const mosquitto_property* properties) {
  BrokerMessage message;
  message.topic = arrived.topic;
  if (arrived.payloadlen > 0) {
    message.payload.assign(static_cast<const char*>(arrived.payload),
                           static_cast<std::size_t>(arrived.payloadlen));
  }
  message.at_us = tarvex::TraceClock_us();
  void* data = nullptr;
  std::uint16_t length = 0;
  if (mosquitto_property_read_binary(properties, MQTT_PROP_CORRELATION_DATA, &data, &length,
                                     false) != nullptr) {
    message.correlation.assign(static_cast<const char*>(data), length);
    std::free(data);
  }
  return message;
}

}  // namespace

BrokerClient::BrokerClient(boost::asio::io_context& context, Options options, Handlers handlers)
    : context_(context), options_(std::move(options)), handlers_(std::move(handlers)) {
  mosquitto_lib_init();
  client_ = mosquitto_new(options_.client_id.c_str(), false, this);
  if (client_ == nullptr) {
    throw std::runtime_error("no MQTT client can be made");
  }
  mosquitto_int_option(client_, MOSQ_OPT_TCP_NODELAY, 1);
  mosquitto_reconnect_delay_set(client_, 1, 1, false);
  if (!options_.ca.empty()) {
    const auto file = [](const std::string& name) { return name.empty() ? nullptr : name.c_str(); };
    Require(mosquitto_tls_set(client_, file(options_.ca), nullptr, file(options_.cert),
                              file(options_.key), nullptr),
            "TLS with the given certificates");
  }
  mosquitto_connect_v5_callback_set(
      client_, [](mosquitto*, void* self, int code, int, const mosquitto_property*) {
        static_cast<BrokerClient*>(self)->OnConnack(code);
      });
  mosquitto_disconnect_v5_callback_set(client_,
                                       [](mosquitto*, void* self, int, const mosquitto_property*) {
                                         static_cast<BrokerClient*>(self)->OnConnectionLost();
                                       });
  mosquitto_message_v5_callback_set(
      client_, [](mosquitto*, void* self, const mosquitto_message* message,
                  const mosquitto_property* properties) {
        static_cast<BrokerClient*>(self)->OnArrived(ToMessage(*message, properties));
      });
  Connect(MQTT_PROTOCOL_V5);
}

void BrokerClient::Connect(int version) {
  has_correlation_ = version == MQTT_PROTOCOL_V5;
  mosquitto_int_option(client_, MOSQ_OPT_PROTOCOL_VERSION, version);
  mosquitto_property* session = nullptr;
  if (version == MQTT_PROTOCOL_V5) {
    mosquitto_property_add_int32(&session, MQTT_PROP_SESSION_EXPIRY_INTERVAL, kSession_s);
  }
  // Fails where there is no broker yet; the library's thread then tries again.
  mosquitto_connect_bind_v5(client_, options_.host.c_str(), options_.port, kKeepAlive_s, nullptr,
                            session);
  mosquitto_property_free_all(&session);
  Require(mosquitto_loop_start(client_), "the MQTT library's thread");
}

BrokerClient::~BrokerClient() {
  mosquitto_disconnect(client_);
  mosquitto_loop_stop(client_, true);
  mosquitto_destroy(client_);
}

std::string BrokerClient::SendRequest(const std::string& topic, const std::string& payload,
                                      const std::string& correlation) {
  if (!is_connected_) {
    return "the broker is not there: the request was not sent";
  }
  if (!has_correlation_) {
    return "the broker has MQTT 3.1.1 only, which does not tell which response is of which "
           "request: the request was not sent";
  }
  mosquitto_property* properties = nullptr;
  mosquitto_property_add_binary(&properties, MQTT_PROP_CORRELATION_DATA, correlation.data(),
                                static_cast<std::uint16_t>(correlation.size()));
  const int error =
      mosquitto_publish_v5(client_, nullptr, topic.c_str(), static_cast<int>(payload.size()),
                           payload.data(), kQos, false, properties);
  mosquitto_property_free_all(&properties);
  return error == MOSQ_ERR_SUCCESS ? "" : mosquitto_strerror(error);
}

void BrokerClient::OnConnack(int reason_code) {
  if (reason_code == MQTT_RC_UNSUPPORTED_PROTOCOL_VERSION) {
    SYS_LOG(kLogInfo, "the broker has no MQTT 5: it gets MQTT 3.1.1");
    // The library's thread, which this is, ends with that.
    Post([this] {
      mosquitto_disconnect(client_);
      mosquitto_loop_stop(client_, false);
      Connect(MQTT_PROTOCOL_V311);
    });
    return;
  }
  if (reason_code != 0) {
    SYS_LOG(kLogWarning, "the broker refuses the console: %s",
            mosquitto_reason_string(reason_code));
    return;
  }
  for (const char* rest : {"/+/message/#", "/+/response/#", "/+/status"}) {
    mosquitto_subscribe(client_, nullptr, (options_.root + rest).c_str(), kQos);
  }
  Post([this] {
    is_connected_ = true;
    handlers_.on_state(true);
  });
}

void BrokerClient::OnConnectionLost() {
  Post([this] {
    if (std::exchange(is_connected_, false)) {
      handlers_.on_state(false);
    }
  });
}

// "<root>/<sn>/<channel>/<name>", or "<root>/<sn>/status".
void BrokerClient::OnArrived(const BrokerMessage& arrived) {
  const std::size_t sn_at = options_.root.size() + 1;
  const std::size_t channel_at = arrived.topic.find('/', sn_at);
  if (channel_at == std::string::npos) {
    return;
  }
  BrokerMessage message = arrived;
  message.sn = message.topic.substr(sn_at, channel_at - sn_at);
  const std::size_t name_at = message.topic.find('/', channel_at + 1);
  message.channel = message.topic.substr(channel_at + 1, name_at - channel_at - 1);
  if (name_at != std::string::npos) {
    message.name = message.topic.substr(name_at + 1);
  }
  Post([this, message] {
    if (message.channel == "status") {
      handlers_.on_status(message.sn, message.payload);
    } else {
      handlers_.on_message(message);
    }
  });
}

void BrokerClient::Post(std::function<void()> task) {
  boost::asio::post(context_, std::move(task));
}

}  // namespace console
