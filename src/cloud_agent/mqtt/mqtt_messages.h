// Messages as the library has them, and as the agent has them.
#pragma once

#include <cstddef>

#include "cloud_agent/mqtt/link.h"

struct mosquitto_message;
struct mqtt5__property;

namespace agent {

/// @param properties null under MQTT 3.1.1.
/// @param max_bytes of a larger payload there is the beginning only.
InboundRequest ToRequest(const mosquitto_message& message, const mqtt5__property* properties,
                         std::size_t max_bytes);

/// Makes the MQTT 5 properties of a message.
/// @param properties null where it has none; the caller's, to be freed as the library says.
/// @return MOSQ_ERR_SUCCESS, or the library's error.
int ToProperties(const OutboundMessage& message, mqtt5__property** properties);

}  // namespace agent
