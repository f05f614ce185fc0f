// What each byte of a result's record is, for people who look at one.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace virtual_camera {

struct IvsField {
  enum class Kind { kText, kInt32, kUint32, kUint16, kUint8, kReserved };

  size_t offset;
  size_t size;
  Kind kind;
  const char* name;  ///< as docs/records.md has it
};

/// From the first byte to the last, without gaps.
const std::vector<IvsField>& IvsFields();

/// The field's value in words; a text as it is, up to its NUL, and nothing for reserved bytes.
/// @param record of 552 bytes or more.
std::string IvsFieldValue(const IvsField& field, const std::string& record);

}  // namespace virtual_camera
