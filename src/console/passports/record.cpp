#include "console/passports/record.h"

#include "json_text.h"
#include "platform/json_member.h"
#include "platform/trace.h"

namespace console {
namespace {

using tarvex::Member;

constexpr std::size_t kPlate_bytes = 16;
constexpr std::size_t kPlateIdAt = 80;

}  // namespace

std::optional<RecordHead> ReadRecord(const std::string& bytes) {
  if (bytes.size() != kRecord_bytes) {
    return std::nullopt;
  }
  RecordHead head;
  for (std::size_t i = 4; i-- > 0;) {
    head.plate_id = head.plate_id << 8 | static_cast<unsigned char>(bytes[kPlateIdAt + i]);
  }
  head.plate = bytes.substr(0, kPlate_bytes);
  head.plate.resize(head.plate.find('\0') == std::string::npos ? kPlate_bytes
                                                               : head.plate.find('\0'));
  return head;
}

std::optional<RecordHead> ReadPublished(const std::string& payload) {
  Json::Value document;
  if (!Json::String2Json(payload, document)) {
    return std::nullopt;
  }
  const Json::Value& plate = Member(
      Member(Member(Member(document, "payload"), "AlarmInfoPlate"), "result"), "PlateResult");
  const Json::Value& id = Member(plate, "plateid");
  return id.isUInt() ? std::optional(RecordHead{id.asUInt(), tarvex::TracedBytes(plate, "license")})
                     : std::nullopt;
}

}  // namespace console
