// What a person can set: command line and configuration file.
#pragma once

#include <optional>
#include <string>

#include "cloud_agent/agent.h"
#include "cloud_agent/mqtt/mqtt_link.h"
#include "cloud_agent/pictures/picture_store.h"

namespace agent {

struct ProgramOptions {
  std::string plugin_path;
  int adapter_id = 0;
  std::string root = "cameras";
  std::string response_root;  ///< where requests may have responses besides; empty: nowhere
  bool print_messages = false;
  bool trace = false;
  MqttLink::Options link;                 ///< without topics
  std::size_t max_requests_waiting = 64;  ///< for the event thread
  PictureStore::Options pictures;
  Agent::Options agent;  ///< without topics and clock scale
};

/// Reads the command line, and the file that it names. What is wrong with either, and
/// the help, goes to the terminal.
/// @return the exit status when the program is to end at once.
std::optional<int> ParseOptions(int argc, const char* const* argv, ProgramOptions* options);

/// Fills in what depends on the device's serial number and the clock.
void CompleteOptions(const std::string& serial_number, double clock_scale, ProgramOptions* options);

}  // namespace agent
