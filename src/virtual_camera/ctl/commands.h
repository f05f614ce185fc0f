// The command line of camera_ctl.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include <json/value.h>

namespace virtual_camera {

/// What a command line asks for: a command to the camera, a recording, a capture, or a passport.
struct CtlRequest {
  Json::Value command;
  std::string record_file;      ///< empty: send the command
  int64_t record_count = 0;     ///< 0: until interrupted
  std::string capture_file;     ///< empty: no capture
  int64_t capture_seconds = 0;  ///< 0: until interrupted
  bool is_trace = false;
  std::string trace_id;  ///< empty: the list
};

/// @return the exit status where the program is to end at once.
std::optional<int> ParseCommand(int argc, const char* const* argv, CtlRequest* request);

}  // namespace virtual_camera
