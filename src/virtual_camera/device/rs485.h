// The camera's two RS-485 channels.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>

#include <json/value.h>

#include "virtual_camera/surroundings/announcer.h"
#include "virtual_camera/surroundings/serial_lines.h"

namespace virtual_camera {

/// Writes bytes to the lines, announces what comes in, and counts both. What a line has no
/// room for is dropped. Used on the camera's thread.
class Rs485 {
 public:
  /// Opens the lines. All must outlive this. Throws as SerialLines::Begin.
  Rs485(SerialLines& lines, const std::string& directory, Announcer& announcer,
        std::function<bool()> is_up);

  /// Throws RequestError for a channel that there is not.
  /// @return how many bytes the line has taken.
  size_t Write(int channel, const std::string& bytes);

  /// As if these bytes had come in on the wire. Throws as Write.
  void Input(int channel, const std::string& bytes);

  Json::Value State() const;

 private:
  struct Counts {
    int64_t written = 0;
    int64_t dropped = 0;
    int64_t read = 0;
  };

  static size_t Checked(int channel);

  SerialLines& lines_;
  const std::string directory_;
  Announcer& announcer_;
  std::function<bool()> is_up_;
  std::array<Counts, SerialLines::kChannels> counts_;
};

}  // namespace virtual_camera
