// A file of captured records, read one by one.
#pragma once

#include <cstdint>
#include <fstream>
#include <optional>
#include <string>

namespace virtual_camera {

/// The file holds 552-byte records and nothing else.
class ReplayFile {
 public:
  /// Throws std::runtime_error, with one line that says why, when the file cannot be read or ends
  /// in the midst of a record.
  explicit ReplayFile(const std::string& path);

  /// The next record; nothing after the last, or when reading fails.
  std::optional<std::string> Next();

  int64_t total() const { return total_; }

 private:
  std::ifstream file_;
  int64_t total_ = 0;
};

}  // namespace virtual_camera
