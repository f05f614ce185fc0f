#include "cloud_agent/delivery/undelivered.h"

#include <string>

#include "json_text.h"

namespace agent {

std::optional<Undelivered> QueryUndelivered(tarvex::DpClient* bus, int timeout_ms) {
  static constexpr char kRequest[] = R"({"type":"STP_GET_MQTT_OFFLINE_COUNT"})";
  if (bus == nullptr) {
    return std::nullopt;
  }
  std::string reply;
  const int answered =
      bus->SendRequest(kStoreQueue, 0, kRequest, sizeof(kRequest) - 1, &reply, timeout_ms);
  Json::Value document;
  if (answered < 1 || !Json::String2Json(reply, document) || !document.isObject() ||
      !document["body"].isObject()) {
    return std::nullopt;
  }
  const Json::Value& body = document["body"];
  if (!body["offline_count"].isInt64()) {
    return std::nullopt;
  }
  Undelivered undelivered;
  undelivered.count = body["offline_count"].asInt64();
  if (body["oldest_age_s"].isInt64()) {
    undelivered.oldest_age_s = body["oldest_age_s"].asInt64();
  }
  return undelivered;
}

}  // namespace agent
