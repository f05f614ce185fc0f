#include "cloud_agent/mqtt/mqtt_reasons.h"

#include <mosquitto.h>
#include <mqtt_protocol.h>

#include <cerrno>
#include <cstdio>
#include <system_error>

namespace agent {
namespace {

constexpr char kUser[] = "look at --username and --password-file";
constexpr char kAllowed[] = "look at what the broker allows this user";
constexpr char kClientId[] = "give another --client-id";
constexpr char kLater[] = "it is tried again";

/// What to do; null where the reason itself says all that there is.
const char* Advice(int reason_code) {
  switch (reason_code) {
    case MQTT_RC_CLIENTID_NOT_VALID:
      return kClientId;
    case MQTT_RC_BAD_USERNAME_OR_PASSWORD:
      return kUser;
    case MQTT_RC_NOT_AUTHORIZED:
    case MQTT_RC_BANNED:
      return "look at --username and --password-file, and at what the broker allows this user";
    case MQTT_RC_BAD_AUTHENTICATION_METHOD:
      return "the broker wants another kind of authentication than a user name and a password";
    case MQTT_RC_SERVER_UNAVAILABLE:
    case MQTT_RC_SERVER_BUSY:
    case MQTT_RC_QUOTA_EXCEEDED:
    case MQTT_RC_CONNECTION_RATE_EXCEEDED:
      return kLater;
    case MQTT_RC_USE_ANOTHER_SERVER:
    case MQTT_RC_SERVER_MOVED:
      return "give another --broker";
    case MQTT_RC_TOPIC_NAME_INVALID:
      return kAllowed;
    case MQTT_RC_RETAIN_NOT_SUPPORTED:
      return "the status is a retained will: the broker is to allow retained messages";
    case MQTT_RC_QOS_NOT_SUPPORTED:
      return "the broker is to allow QoS 1";
    default:
      return nullptr;
  }
}

/// The reason code of MQTT 5 that says the same.
int AsReasonCode(int return_code) {
  switch (return_code) {
    case CONNACK_REFUSED_PROTOCOL_VERSION:
      return MQTT_RC_UNSUPPORTED_PROTOCOL_VERSION;
    case CONNACK_REFUSED_IDENTIFIER_REJECTED:
      return MQTT_RC_CLIENTID_NOT_VALID;
    case CONNACK_REFUSED_SERVER_UNAVAILABLE:
      return MQTT_RC_SERVER_UNAVAILABLE;
    case CONNACK_REFUSED_BAD_USERNAME_PASSWORD:
      return MQTT_RC_BAD_USERNAME_OR_PASSWORD;
    case CONNACK_REFUSED_NOT_AUTHORIZED:
      return MQTT_RC_NOT_AUTHORIZED;
    default:
      return MQTT_RC_UNSPECIFIED;
  }
}

std::string Hexadecimal(int code) {
  char number[16];
  std::snprintf(number, sizeof(number), "(0x%02x)", static_cast<unsigned>(code));
  return number;
}

}  // namespace

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

std::string ReasonText(int reason_code) {
  return std::string(mosquitto_reason_string(reason_code)) + " " + Hexadecimal(reason_code);
}

bool RefusesVersion(MqttVersion version, int connack_code) {
  return version == MqttVersion::k5 ? connack_code == MQTT_RC_UNSUPPORTED_PROTOCOL_VERSION
                                    : connack_code == CONNACK_REFUSED_PROTOCOL_VERSION;
}

std::string RefusalText(MqttVersion version, int connack_code) {
  const int reason_code = version == MqttVersion::k5 ? connack_code : AsReasonCode(connack_code);
  std::string text = "the broker refuses";
  if (RefusesVersion(version, connack_code)) {
    text += std::string(" ") + VersionText(version);
  }
  text +=
      std::string(": ") + mosquitto_reason_string(reason_code) + " " + Hexadecimal(connack_code);
  const char* const advice = Advice(reason_code);
  return advice != nullptr ? text + "; " + advice : text;
}

std::string SilenceText(ConnectStage stage, int seconds, bool uses_tls) {
  const std::string in_time = " in " + std::to_string(seconds) + " s";
  switch (stage) {
    case ConnectStage::kTcp:
      return "no TCP connection" + in_time + "; look at the address, and at firewalls on the way";
    case ConnectStage::kTls:
      return "the server takes the connection and does not begin TLS" + in_time +
             "; look whether the port is the broker's one with TLS";
    case ConnectStage::kConnack:
      return "the server takes the connection and does not answer CONNECT" + in_time +
             "; look whether a broker is there that works" +
             (uses_tls ? "" : ", and whether the port is one with TLS (mqtts:// or --tls)");
    default:
      return "the broker does not answer the subscription to requests" + in_time +
             "; look at its load, and at what it allows this user";
  }
}

std::string ClosedText(ConnectStage stage, MqttVersion version, bool uses_tls) {
  if (stage == ConnectStage::kConnack) {
    return std::string("the server ends the connection on CONNECT of ") + VersionText(version) +
           " without an answer; look whether the broker is in order" +
           (uses_tls ? "" : ", and whether the port is one with TLS (mqtts:// or --tls)");
  }
  return "the broker ends the connection on the subscription to requests; look at what it allows "
         "this user";
}

}  // namespace agent
