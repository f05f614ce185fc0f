// What the agent knows of the plug-in's messages and requests beyond their names.
#pragma once

#include <optional>

#include <json/value.h>

#include "platform/json_member.h"

namespace agent {

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

/// The plate result in a payload "ivs_result"; null in any other.
inline const Json::Value& PlateResult(const Json::Value& payload) {
  using tarvex::Member;
  return Member(Member(Member(payload, "AlarmInfoPlate"), "result"), "PlateResult");
}

inline std::optional<Json::UInt> PlateId(const Json::Value& payload) {
  const Json::Value& plate_id = tarvex::Member(PlateResult(payload), "plateid");
  return plate_id.isUInt() ? std::optional(plate_id.asUInt()) : std::nullopt;
}

}  // namespace agent
