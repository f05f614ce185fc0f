#include "console/passports/record.h"

namespace console {
namespace {

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

}  // namespace console
