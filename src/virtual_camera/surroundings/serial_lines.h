// The lines of the camera's two RS-485 channels. An interface so that tests need no
// terminals.
#pragma once

#include <cstddef>
#include <functional>
#include <string>

namespace virtual_camera {

/// Used on the camera's thread only.
class SerialLines {
 public:
  static constexpr int kChannels = 2;

  virtual ~SerialLines() = default;

  /// Opens the lines. Throws std::runtime_error when that fails.
  /// @param directory where the lines get names, "rs485-0" and "rs485-1".
  /// @param on_input  called on the camera's thread with what came in on a channel.
  virtual void Begin(const std::string& directory,
                     std::function<void(int channel, const std::string& bytes)> on_input) = 0;

  /// Sends bytes. Never waits.
  /// @return how many the line has taken; the rest has no room.
  virtual size_t Write(int channel, const std::string& bytes) = 0;

  /// The path of the line behind a channel.
  virtual std::string Path(int channel) const = 0;
};

}  // namespace virtual_camera
