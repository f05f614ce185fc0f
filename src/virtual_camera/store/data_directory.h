// The directory of all files of a camera.
#pragma once

#include <string>

namespace virtual_camera {

/// Created where it is missing, and locked: one camera at a time uses it.
class DataDirectory {
 public:
  /// Throws std::runtime_error when it cannot be made or another camera uses it.
  explicit DataDirectory(const std::string& path);
  ~DataDirectory();

  DataDirectory(const DataDirectory&) = delete;
  DataDirectory& operator=(const DataDirectory&) = delete;

  /// Absolute.
  const std::string& path() const { return path_; }
  std::string Under(const std::string& name) const { return path_ + "/" + name; }

 private:
  std::string path_;
  int lock_ = -1;  // file descriptor; the lock ends with the process, however it ends
};

}  // namespace virtual_camera
