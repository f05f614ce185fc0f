// What a broker's refusals mean, in words.
#pragma once

#include <string>

#include "cloud_agent/mqtt/mqtt_version.h"

namespace agent {

/// An error of the library in words; for MOSQ_ERR_ERRNO it is errno's.
std::string ErrorText(int error);

/// An MQTT 5 reason code in words, such as "Not authorized (0x87)".
std::string ReasonText(int reason_code);

/// Whether a CONNACK with this code refuses the version of MQTT.
bool RefusesVersion(MqttVersion version, int connack_code);

/// Why the broker refuses CONNECT, and what to do about it.
/// @param connack_code not 0; a reason code of MQTT 5, or a return code of MQTT 3.1.1.
std::string RefusalText(MqttVersion version, int connack_code);

/// How far a connection has come.
enum class ConnectStage {
  kTcp,        ///< no TCP connection yet
  kTls,        ///< that stands; TLS does not yet
  kConnack,    ///< CONNECT is sent
  kSubscribe,  ///< let in; the subscription to requests is sent
  kReady,
};

/// What is said of a broker that does not answer before kReady.
std::string SilenceText(ConnectStage stage, int seconds, bool uses_tls);

/// What is said of a broker that ends the connection at kConnack or kSubscribe.
std::string ClosedText(ConnectStage stage, MqttVersion version, bool uses_tls);

}  // namespace agent
