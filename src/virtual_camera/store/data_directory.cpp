#include "virtual_camera/store/data_directory.h"

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <stdexcept>

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

namespace virtual_camera {

DataDirectory::DataDirectory(const std::string& path) {
  std::error_code error;
  std::filesystem::create_directories(path, error);
  if (!error) {
    path_ = std::filesystem::canonical(path, error).string();
  }
  if (error) {
    throw std::runtime_error(path + ": " + error.message());
  }
  lock_ = open(Under("lock").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0644);
  if (lock_ < 0) {
    throw std::runtime_error(Under("lock") + ": " + std::strerror(errno));
  }
  if (flock(lock_, LOCK_EX | LOCK_NB) != 0) {
    close(lock_);
    throw std::runtime_error(path_ + " is in use by another camera");
  }
}

DataDirectory::~DataDirectory() { close(lock_); }

}  // namespace virtual_camera
