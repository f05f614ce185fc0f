#include "broker.h"

#include <mosquitto.h>

#include <chrono>
#include <stdexcept>
#include <utility>

namespace {

constexpr int kKeepAlive_s = 60;
constexpr std::int64_t kPatience_ms = 10000;
constexpr int kNap_ms = 100;

std::int64_t Now_ms() {
  using std::chrono::duration_cast;
  using std::chrono::milliseconds;
  return duration_cast<milliseconds>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

void Require(int error, const char* what) {
  if (error != MOSQ_ERR_SUCCESS) {
    throw std::runtime_error(std::string("broker, ") + what + ": " + mosquitto_strerror(error));
  }
}

}  // namespace

Broker::Broker(int port, const std::string& filter, int qos, Handler handler)
    : handler_(std::move(handler)) {
  mosquitto_lib_init();
  client_ = mosquitto_new(nullptr, true, this);
  mosquitto_int_option(client_, MOSQ_OPT_PROTOCOL_VERSION, MQTT_PROTOCOL_V5);
  mosquitto_int_option(client_, MOSQ_OPT_TCP_NODELAY, 1);
  mosquitto_connect_callback_set(client_, [](mosquitto*, void* self, int code) {
    static_cast<Broker*>(self)->is_connected_ = code == 0;
  });
  mosquitto_subscribe_callback_set(client_, [](mosquitto*, void* self, int, int, const int*) {
    static_cast<Broker*>(self)->is_subscribed_ = true;
  });
  mosquitto_publish_callback_set(client_, [](mosquitto*, void* self, int message) {
    static_cast<Broker*>(self)->acknowledged_ = message;
  });
  mosquitto_message_callback_set(
      client_, [](mosquitto*, void* self, const mosquitto_message* message) {
        static_cast<Broker*>(self)->handler_(message->topic,
                                             {static_cast<const char*>(message->payload),
                                              static_cast<std::size_t>(message->payloadlen)});
      });
  try {
    Require(mosquitto_connect(client_, "127.0.0.1", port, kKeepAlive_s), "connection");
    DriveUntil([this] { return is_connected_; });
    if (!filter.empty()) {
      Require(mosquitto_subscribe(client_, nullptr, filter.c_str(), qos), "subscription");
      DriveUntil([this] { return is_subscribed_; });
    }
  } catch (...) {
    mosquitto_destroy(client_);
    throw;
  }
}

Broker::~Broker() {
  is_to_end_ = true;
  if (thread_.joinable()) {
    thread_.join();
  }
  mosquitto_destroy(client_);
}

int Broker::Publish(const std::string& topic, const std::string& payload) {
  int message = 0;
  Require(mosquitto_publish(client_, &message, topic.c_str(), static_cast<int>(payload.size()),
                            payload.data(), 1, false),
          "publication");
  return message;
}

void Broker::PublishAcknowledged(const std::string& topic, const std::string& payload) {
  const int message = Publish(topic, payload);
  DriveUntil([this, message] { return acknowledged_ == message; });
}

void Broker::DriveInBackground() {
  thread_ = std::thread([this] {
    while (!is_to_end_ && mosquitto_loop(client_, kNap_ms, 1) == MOSQ_ERR_SUCCESS) {
    }
  });
}

std::int64_t Broker::Deadline() { return Now_ms() + kPatience_ms; }

void Broker::DriveOnce(std::int64_t deadline) {
  Require(mosquitto_loop(client_, kNap_ms, 1), "connection");
  if (Now_ms() > deadline) {
    throw std::runtime_error("broker: nothing came for ten seconds");
  }
}
