// Writing log entries to a file descriptor without ever waiting for its reader.
#pragma once

#include <cstddef>
#include <mutex>
#include <string>

namespace tarvex {

/// Writes whole entries only. Where there is no room, as in a pipe that nobody reads,
/// entries are dropped; the next one that finds room is written after a line that says
/// how many. Any thread.
class LogWriter {
 public:
  /// @param descriptor stays as it is: no flag of it is changed.
  explicit LogWriter(int descriptor);

  /// @param entry ends with a newline.
  void Write(const std::string& entry);

 private:
  bool WriteRest();
  bool HasRoom() const;

  const int descriptor_;
  const bool is_file_;       // which always has room
  std::mutex mutex_;         // guards what follows
  std::string rest_;         // of what was begun
  std::size_t dropped_ = 0;  // since an entry was written
};

}  // namespace tarvex
