// What the console reads of a 552-byte recognition record; docs/records.md has the layout.
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

}  // namespace console
