#include "virtual_camera/world/durable_file.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <stdexcept>

#include <fcntl.h>
#include <unistd.h>

namespace virtual_camera {

namespace fs = std::filesystem;

namespace {

[[noreturn]] void FailAtFile(const std::string& path) {
  throw std::runtime_error(path + ": " + std::strerror(errno));
}

bool WriteAndSync(const fs::path& path, std::string_view bytes) {
  std::FILE* const file = std::fopen(path.c_str(), "wbe");
  if (file == nullptr) {
    return false;
  }
  const bool is_synced = std::fwrite(bytes.data(), 1, bytes.size(), file) == bytes.size() &&
                         std::fflush(file) == 0 && fsync(fileno(file)) == 0;
  const int reason = errno;
  const bool is_closed = std::fclose(file) == 0;
  errno = is_synced ? errno : reason;
  return is_synced && is_closed;
}

}  // namespace

void WriteDurably(const std::string& path, std::string_view bytes) {
  const fs::path unfinished = fs::path(path).replace_filename("unfinished");
  if (!WriteAndSync(unfinished, bytes) || std::rename(unfinished.c_str(), path.c_str()) != 0) {
    const int reason = errno;
    std::error_code ignored;
    fs::remove(unfinished, ignored);
    errno = reason;
    FailAtFile(path);
  }
}

void SyncDirectory(const std::string& directory) {
  const int fd = open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (fd < 0) {
    FailAtFile(directory);
  }
  const bool is_synced = fsync(fd) == 0;
  const int reason = errno;
  close(fd);  // nothing is written by this
  if (!is_synced) {
    errno = reason;
    FailAtFile(directory);
  }
}

}  // namespace virtual_camera
