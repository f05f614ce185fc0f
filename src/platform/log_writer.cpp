#include "platform/log_writer.h"

#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <climits>

#include "platform/log.h"
#include "platform/log_entry.h"

namespace tarvex {
namespace {

bool IsFile(int descriptor) {
  struct stat about {};
  return fstat(descriptor, &about) == 0 && S_ISREG(about.st_mode);
}

}  // namespace

LogWriter::LogWriter(int descriptor) : descriptor_(descriptor), is_file_(IsFile(descriptor)) {}

void LogWriter::Write(const std::string& entry) {
  const std::lock_guard<std::mutex> lock(mutex_);
  if (!WriteRest() || !HasRoom()) {
    ++dropped_;
    return;
  }
  if (dropped_ > 0) {
    rest_ = LogEntry(std::chrono::system_clock::now(), kLogWarning, LOG_SOURCE, "Write", __LINE__,
                     std::to_string(dropped_) + " log entries dropped: there was no room");
    dropped_ = 0;
  }
  rest_ += entry;
  WriteRest();
}

/// @return whether all of it is written, or never will be.
bool LogWriter::WriteRest() {
  std::size_t written = 0;
  while (written < rest_.size() && HasRoom()) {
    // So much at a time does not block where poll() has found room, and stays together
    // where other processes write to the same pipe.
    const std::size_t length = std::min<std::size_t>(rest_.size() - written, PIPE_BUF);
    const ssize_t count = write(descriptor_, rest_.data() + written, length);
    if (count > 0) {
      written += static_cast<std::size_t>(count);
    } else if (count < 0 && errno == EAGAIN) {
      break;
    } else if (count < 0 && errno != EINTR) {
      written = rest_.size();  // nobody can read it: given up
    }
  }
  rest_.erase(0, written);
  return rest_.empty();
}

/// An end that is broken has room: writing tells.
bool LogWriter::HasRoom() const {
  if (is_file_) {
    return true;
  }
  pollfd writable{descriptor_, POLLOUT, 0};
  return poll(&writable, 1, 0) != 0;
}

}  // namespace tarvex
