#include "support/mqtt_client.h"

#include <mosquitto.h>
#include <mqtt_protocol.h>

#include <algorithm>
#include <cstdlib>
#include <stdexcept>

#include "support/wait_until.h"

namespace {

std::string CorrelationOf(const mosquitto_property* properties) {
  void* data = nullptr;
  uint16_t length = 0;
  if (mosquitto_property_read_binary(properties, MQTT_PROP_CORRELATION_DATA, &data, &length,
                                     false) == nullptr) {
    return "";
  }
  std::string correlation(static_cast<const char*>(data), length);
  free(data);  // NOLINT: the library's
  return correlation;
}

}  // namespace

std::function<void(const MqttClient::Message&)> MqttClient::inspector;

/// Sets the library up once for the process.
struct MqttClient::Library {
  Library() { mosquitto_lib_init(); }
  ~Library() { mosquitto_lib_cleanup(); }
};

MqttClient::MqttClient(const BrokerAccess& broker, const std::string& filter,
                       std::function<void(const Message&)> on_message)
    : filter_(filter), on_message_(std::move(on_message)) {
  static const Library library;
  client_ = mosquitto_new(nullptr, true, this);
  mosquitto_int_option(client_, MOSQ_OPT_PROTOCOL_VERSION,
                       broker.speaks_mqtt_5 ? MQTT_PROTOCOL_V5 : MQTT_PROTOCOL_V311);
  if (!broker.username.empty()) {
    mosquitto_username_pw_set(client_, broker.username.c_str(), broker.password.c_str());
  }
  mosquitto_int_option(client_, MOSQ_OPT_TCP_NODELAY, 1);
  mosquitto_reconnect_delay_set(client_, 1, 1, false);
  mosquitto_connect_callback_set(client_, OnConnect);
  mosquitto_subscribe_callback_set(client_, OnSubscribed);
  mosquitto_disconnect_callback_set(client_, OnDisconnect);
  mosquitto_publish_callback_set(client_, OnPublished);
  mosquitto_message_v5_callback_set(client_, [](mosquitto*, void* self,
                                                const mosquitto_message* message,
                                                const mosquitto_property* properties) {
    static_cast<MqttClient*>(self)->Arrived({message->topic,
                                             std::string(static_cast<const char*>(message->payload),
                                                         static_cast<size_t>(message->payloadlen)),
                                             CorrelationOf(properties), message->retain});
  });
  mosquitto_connect_async(client_, "127.0.0.1", broker.port, 10);
  mosquitto_loop_start(client_);
  if (!WaitUntil([this] { return IsSubscribed(); })) {
    throw std::runtime_error("the test's MQTT client does not get a connection");
  }
}

MqttClient::~MqttClient() {
  mosquitto_disconnect(client_);
  mosquitto_loop_stop(client_, false);  // returns after DISCONNECT was sent
  mosquitto_destroy(client_);
}

void MqttClient::OnConnect(mosquitto* client, void* self, int code) {
  if (code == 0) {
    const auto* me = static_cast<MqttClient*>(self);
    mosquitto_subscribe(client, nullptr, me->filter_.c_str(), 1);
  }
}

void MqttClient::OnSubscribed(mosquitto* /*client*/, void* self, int /*id*/, int /*count*/,
                              const int* /*granted*/) {
  auto* me = static_cast<MqttClient*>(self);
  const std::lock_guard<std::mutex> lock(me->mutex_);
  me->is_subscribed_ = true;
}

void MqttClient::OnDisconnect(mosquitto* /*client*/, void* self, int /*code*/) {
  auto* me = static_cast<MqttClient*>(self);
  const std::lock_guard<std::mutex> lock(me->mutex_);
  me->is_subscribed_ = false;
}

void MqttClient::OnPublished(mosquitto* /*client*/, void* self, int id) {
  auto* me = static_cast<MqttClient*>(self);
  const std::lock_guard<std::mutex> lock(me->mutex_);
  me->last_published_ = id;
  me->published_.notify_all();
}

void MqttClient::Arrived(const Message& message) {
  if (on_message_) {
    on_message_(message);
    return;
  }
  if (inspector) {
    inspector(message);
  }
  const std::lock_guard<std::mutex> lock(mutex_);
  messages_.push_back(message);
}

bool MqttClient::IsSubscribed() const {
  const std::lock_guard<std::mutex> lock(mutex_);
  return is_subscribed_;
}

void MqttClient::Publish(const std::string& topic, const std::string& payload,
                         const Extras& extras) {
  mosquitto_property* properties = nullptr;
  if (!extras.response_topic.empty()) {
    mosquitto_property_add_string(&properties, MQTT_PROP_RESPONSE_TOPIC,
                                  extras.response_topic.c_str());
    mosquitto_property_add_binary(&properties, MQTT_PROP_CORRELATION_DATA,
                                  extras.correlation.data(),
                                  static_cast<uint16_t>(extras.correlation.size()));
  }
  if (extras.expiry_s > 0) {
    mosquitto_property_add_int32(&properties, MQTT_PROP_MESSAGE_EXPIRY_INTERVAL,
                                 static_cast<uint32_t>(extras.expiry_s));
  }
  const int result =
      mosquitto_publish_v5(client_, nullptr, topic.c_str(), static_cast<int>(payload.size()),
                           payload.data(), 1, extras.retain, properties);
  mosquitto_property_free_all(&properties);
  if (result != MOSQ_ERR_SUCCESS) {
    throw std::runtime_error(mosquitto_strerror(result));
  }
}

std::chrono::microseconds MqttClient::RoundTrip(const std::string& topic,
                                                const std::string& payload) {
  const auto begin = std::chrono::steady_clock::now();
  int id = 0;
  const int result = mosquitto_publish(client_, &id, topic.c_str(),
                                       static_cast<int>(payload.size()), payload.data(), 1, false);
  std::unique_lock<std::mutex> lock(mutex_);
  if (result != MOSQ_ERR_SUCCESS ||
      !published_.wait_for(lock, std::chrono::seconds(20), [&] { return last_published_ == id; })) {
    throw std::runtime_error("no acknowledgement of " + topic);
  }
  return std::chrono::duration_cast<std::chrono::microseconds>(std::chrono::steady_clock::now() -
                                                               begin);
}

std::optional<MqttClient::Message> MqttClient::Await(
    const std::function<bool(const Message&)>& is_wanted, std::chrono::milliseconds deadline) {
  return Take(is_wanted, deadline, true);
}

std::optional<MqttClient::Message> MqttClient::Pick(
    const std::function<bool(const Message&)>& is_wanted, std::chrono::milliseconds deadline) {
  return Take(is_wanted, deadline, false);
}

std::optional<MqttClient::Message> MqttClient::Take(
    const std::function<bool(const Message&)>& is_wanted, std::chrono::milliseconds deadline,
    bool with_all_before) {
  std::optional<Message> found;
  WaitUntil(
      [&] {
        const std::lock_guard<std::mutex> lock(mutex_);
        const auto match = std::find_if(messages_.begin(), messages_.end(), is_wanted);
        if (match == messages_.end()) {
          return false;
        }
        found = *match;
        messages_.erase(with_all_before ? messages_.begin() : match, match + 1);
        return true;
      },
      deadline);
  return found;
}

std::optional<MqttClient::Message> MqttClient::AwaitTopic(const std::string& topic) {
  return Await([&topic](const Message& message) { return message.topic == topic; });
}

void MqttClient::Forget() {
  const std::lock_guard<std::mutex> lock(mutex_);
  messages_.clear();
}
