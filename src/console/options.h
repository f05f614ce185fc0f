// The console's command line.
#pragma once

#include <map>
#include <optional>
#include <string>

#include "console/desk/broker_client.h"

namespace console {

struct ConsoleOptions {
  int port = 8090;
  BrokerClient::Options broker;
  bool has_bus = true;  ///< otherwise `cameras` is empty
  int link_port = 0;    ///< where the agent finds the broker; 0: the console gives no link
  std::string page_directory = "src/console/page";
  std::string contract_file = "contract/asyncapi.json";
  std::map<std::string, std::string> cameras;     ///< prefix of its subjects by serial number
  std::map<std::string, std::string> pictures;    ///< directory by serial number
  std::map<std::string, std::string> agent_pids;  ///< file by serial number
};

/// @return the exit status where the program is to end at once.
std::optional<int> ParseOptions(int argc, const char* const* argv, ConsoleOptions* options);

}  // namespace console
