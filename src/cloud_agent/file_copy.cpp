#include "cloud_agent/file_copy.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <system_error>

namespace agent {
namespace {

constexpr std::size_t kChunk_bytes = std::size_t{64} << 10;

class FileDescriptor {
 public:
  explicit FileDescriptor(int value) : value_(value) {}
  ~FileDescriptor() {
    if (value_ >= 0) {
      close(value_);
    }
  }
  FileDescriptor(const FileDescriptor&) = delete;
  FileDescriptor& operator=(const FileDescriptor&) = delete;
  int get() const { return value_; }

 private:
  int value_;
};

std::string LastError(const char* what) {
  return std::string(what) + ": " + std::generic_category().message(errno);
}

std::string WriteAll(int file, const char* data, std::size_t length) {
  while (length > 0) {
    const ssize_t written = write(file, data, length);
    if (written < 0 && errno != EINTR) {
      return LastError("cannot be written");
    }
    if (written > 0) {
      data += written;
      length -= static_cast<std::size_t>(written);
    }
  }
  return "";
}

// The size is counted, not believed: the file may be growing.
std::string CopyContent(int source, int target, std::size_t max_bytes) {
  std::array<char, kChunk_bytes> chunk;
  std::size_t total = 0;
  for (;;) {
    const ssize_t count = read(source, chunk.data(), chunk.size());
    if (count == 0) {
      return "";
    }
    if (count < 0) {
      if (errno == EINTR) {
        continue;
      }
      return LastError("cannot be read");
    }
    total += static_cast<std::size_t>(count);
    if (total > max_bytes) {
      return "is larger than " + std::to_string(max_bytes) + " bytes";
    }
    const std::string error = WriteAll(target, chunk.data(), static_cast<std::size_t>(count));
    if (!error.empty()) {
      return error;
    }
  }
}

}  // namespace

std::string CopyFileWhole(const std::string& source, const std::string& target,
                          const std::string& temporary, std::size_t max_bytes) {
  // A pipe or a device must not block the caller.
  const FileDescriptor in(open(source.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
  struct stat info = {};
  if (in.get() < 0 || fstat(in.get(), &info) != 0) {
    return LastError("cannot be opened");
  }
  if (!S_ISREG(info.st_mode)) {
    return "is not a regular file";
  }
  std::string error;
  {
    const FileDescriptor out(
        open(temporary.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC | O_NOFOLLOW, 0644));
    if (out.get() < 0) {
      return LastError("its copy cannot be created");
    }
    error = CopyContent(in.get(), out.get(), max_bytes);
  }
  if (error.empty() && std::rename(temporary.c_str(), target.c_str()) != 0) {
    error = LastError("its copy cannot be renamed");
  }
  if (!error.empty()) {
    unlink(temporary.c_str());
  }
  return error;
}

}  // namespace agent
