#include "virtual_camera/world/ivs_record.h"

#include <algorithm>
#include <cstring>
#include <type_traits>

namespace virtual_camera {

static_assert(std::is_trivially_copyable_v<IvsRecord>);

std::string RecordBytes(const IvsRecord& record) {
  std::string bytes(kIvsRecordSize, '\0');
  std::memcpy(bytes.data(), &record, kIvsRecordSize);
  return bytes;
}

IvsRecord RecordFromBytes(const std::string& bytes) {
  IvsRecord record;
  std::memcpy(&record, bytes.data(), std::min(bytes.size(), kIvsRecordSize));
  return record;
}

}  // namespace virtual_camera
