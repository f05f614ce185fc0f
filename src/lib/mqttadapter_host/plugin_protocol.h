// What a host knows of the plug-in's messages and requests beyond their names.
#pragma once

#include <json/value.h>
#include <boost/optional.hpp>

namespace mqttadapter_host {

/// Publish tags that mean something to a host.
constexpr unsigned long long kLiveResultTag = 11;
constexpr unsigned long long kOfflineResultTag = 16;
constexpr unsigned long long kOfflineCountTag = 17;

inline bool IsResult(unsigned long long tag) {
  return tag == kLiveResultTag || tag == kOfflineResultTag;
}

/// The bus topic on which the plug-in receives recognition results.
constexpr char kResultTopic[] = "BUS_SRV_IVS_RESULT";

/// The request that starts and stops the re-delivery of stored results.
constexpr char kOfflineRequest[] = "check_offline_record";

/// A member of an object; null where it is missing or `value` is no object.
inline const Json::Value& Member(const Json::Value& value, const char* key) {
  return value.isObject() ? value[key] : Json::Value::nullSingleton();
}

/// The plate result in a payload "ivs_result"; null in any other.
inline const Json::Value& PlateResult(const Json::Value& payload) {
  return Member(Member(Member(payload, "AlarmInfoPlate"), "result"), "PlateResult");
}

inline boost::optional<Json::UInt> PlateId(const Json::Value& payload) {
  const Json::Value& plate_id = Member(PlateResult(payload), "plateid");
  return boost::make_optional(plate_id.isUInt(), plate_id.isUInt() ? plate_id.asUInt() : 0);
}

}  // namespace mqttadapter_host
