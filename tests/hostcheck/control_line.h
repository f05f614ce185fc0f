// The plug-in's end of the line to the program `hostcheck`.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include <json/value.h>

namespace hostcheck {

/// One TCP connection, lines of JSON either way. Not thread-safe.
class ControlLine {
 public:
  /// Connects to where the environment says.
  /// @param error receives one line that says why there is none.
  /// @return null where there is none.
  static std::unique_ptr<ControlLine> Connect(std::string* error);

  ~ControlLine();
  ControlLine(const ControlLine&) = delete;
  ControlLine& operator=(const ControlLine&) = delete;

  /// Sends a line, and waits until it is on its way. A program that is gone is no matter.
  void Send(const Json::Value& line);

  /// What has come since; does not wait.
  std::vector<Json::Value> Receive();

 private:
  explicit ControlLine(int socket) : socket_(socket) {}

  int socket_;
  std::string received_;  // the beginning of a line
};

}  // namespace hostcheck
