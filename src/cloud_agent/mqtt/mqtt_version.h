// The versions of MQTT, and what tells whether a broker has one.
#pragma once

namespace agent {

/// The numbers are the protocol levels that CONNECT carries.
enum class MqttVersion { k311 = 4, k5 = 5 };

inline const char* VersionText(MqttVersion version) {
  return version == MqttVersion::k5 ? "MQTT 5" : "MQTT 3.1.1";
}

/// What an attempt to connect shows of the version that it was made with.
enum class VersionFinding {
  kNothing,  ///< it did not come so far
  kSpoken,   ///< the broker has answered in it, be it with a refusal
  kRefused,  ///< the broker says that it does not have it
  kDoubted,  ///< CONNECT was answered with the end of the connection, or with something else
};

}  // namespace agent
