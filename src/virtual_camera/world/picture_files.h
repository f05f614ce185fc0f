// Where the pictures of the results lie.
#pragma once

#include <cstdint>
#include <functional>
#include <string>

namespace virtual_camera {

/// Two files per result, named after its plate id, in a directory of their own.
class PictureFiles {
 public:
  /// Creates the directory. Throws std::runtime_error when that fails, or when the paths
  /// would not fit a record.
  explicit PictureFiles(const std::string& directory);

  std::string FullPath(uint32_t id) const;
  std::string ClipPath(uint32_t id) const;

  /// Syncs the directory, after which the pictures in it survive loss of power. Throws
  /// std::runtime_error when that fails.
  void Sync() const;

  /// Removes those of both pictures that are there.
  void Remove(uint32_t id) const;

  /// Removes the pictures whose result is not in the store: those of a process that was
  /// killed between drawing and storing.
  /// @return how many files that were.
  int RemoveOrphans(const std::function<bool(uint32_t id)>& is_known) const;

 private:
  std::string directory_;
};

}  // namespace virtual_camera
