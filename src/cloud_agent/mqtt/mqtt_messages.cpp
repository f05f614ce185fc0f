#include "cloud_agent/mqtt/mqtt_messages.h"

#include <mosquitto.h>
#include <mqtt_protocol.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>

namespace agent {
namespace {

// Of a request that is too large: its id may be there.
constexpr std::size_t kBeginning_bytes = 1024;

}  // namespace

InboundRequest ToRequest(const mosquitto_message& message, const mqtt5__property* properties,
                         std::size_t max_bytes) {
  InboundRequest request;
  request.topic = message.topic;
  request.size = message.payloadlen > 0 ? static_cast<std::size_t>(message.payloadlen) : 0;
  if (request.size > 0) {
    const std::size_t kept =
        request.size <= max_bytes ? request.size : std::min(request.size, kBeginning_bytes);
    request.payload.assign(static_cast<const char*>(message.payload), kept);
  }
  request.received_at = std::chrono::steady_clock::now();
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

int ToProperties(const OutboundMessage& message, mqtt5__property** properties) {
  *properties = nullptr;
  if (!message.has_correlation_data) {
    return MOSQ_ERR_SUCCESS;
  }
  return mosquitto_property_add_binary(properties, MQTT_PROP_CORRELATION_DATA,
                                       message.correlation_data.data(),
                                       static_cast<std::uint16_t>(message.correlation_data.size()));
}

}  // namespace agent
