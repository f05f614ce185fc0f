// Which pictures the picture directory holds, in the order of their age.
#pragma once

#include <cstddef>
#include <deque>
#include <optional>
#include <string>
#include <unordered_set>

namespace agent {

/// Knows names only; the caller removes files. Never holds more than `limit` names.
class PictureIndex {
 public:
  /// @param limit at least 1.
  explicit PictureIndex(std::size_t limit) : limit_(limit) {}

  /// Notes the newest picture. A name that is known keeps its place: its file was
  /// replaced.
  /// @return the oldest name when it has to go to make room.
  std::optional<std::string> Add(const std::string& name);

 private:
  const std::size_t limit_;
  std::deque<std::string> oldest_first_;
  std::unordered_set<std::string> known_;
};

}  // namespace agent
