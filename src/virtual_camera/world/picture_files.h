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

  /// Has the pictures that were written survive loss of power: their names too. Throws
  /// std::runtime_error when that is not certain.
  void Sync() const;

  /// Removes both pictures; those that are not there are no matter.
  void Remove(uint32_t id) const;

  /// Removes the pictures whose result is not known, as a kill leaves them behind.
  /// @return how many files that were.
  int RemoveOrphans(const std::function<bool(uint32_t id)>& is_known) const;

 private:
  std::string directory_;
};

}  // namespace virtual_camera
