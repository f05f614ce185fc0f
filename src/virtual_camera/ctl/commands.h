// The command line of camera_ctl.
#pragma once

#include <cstdint>
#include <string>

#include <json/value.h>
#include <CLI/CLI.hpp>

namespace virtual_camera {

/// What a command line asks for: a command to the camera, a recording, or a passport.
struct CtlRequest {
  Json::Value command;
  std::string record_file;   ///< empty: send the command
  int64_t record_count = 0;  ///< 0: until interrupted
  bool is_trace = false;
  std::string trace_id;  ///< empty: the list
};

/// Adds every subcommand; parsing then fills `request`, which must outlive the parser.
void AddCommands(CLI::App& app, CtlRequest& request);

}  // namespace virtual_camera
