// Lets a host tell others what went wrong last.
#pragma once

#include <chrono>
#include <optional>
#include <string>

namespace tarvex {

struct LoggedError {
  std::chrono::system_clock::time_point time;
  std::string text;  ///< "source: text", cut after a few hundred bytes
};

/// The latest entry of level error or worse in this process's log. Any thread.
std::optional<LoggedError> LatestError();

}  // namespace tarvex
