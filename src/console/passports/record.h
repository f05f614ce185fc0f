// What the console reads of a recognition result: of the 552-byte record on the bus, whose layout
// docs/records.md has, and of the published JSON.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace console {

constexpr std::size_t kRecord_bytes = 552;

struct RecordHead {
  std::uint32_t plate_id = 0;
  std::string plate;
};

/// @return empty when the bytes are no record.
std::optional<RecordHead> ReadRecord(const std::string& bytes);

/// @param payload of an ivs_result at the broker.
/// @return empty when the payload has no plate id.
std::optional<RecordHead> ReadPublished(const std::string& payload);

}  // namespace console
