// What an entry of the system log looks like, and which entries are written.
#pragma once

#include <chrono>
#include <cstddef>
#include <string>

namespace tarvex {

/// Longest text of an entry, in bytes; what is longer is cut and marked.
constexpr std::size_t kLongestLogText = std::size_t{64} << 10U;

/// One entry, with a newline at its end:
/// "2026-01-31 23:59:59.000 error mqtt_adapter Initialize:12 the text". Local time.
std::string LogEntry(std::chrono::system_clock::time_point time, int priority, const char* source,
                     const char* function, int line, const std::string& text);

/// Highest priority number that is written.
/// @param text 0 to 7; null or anything else: 6.
int LogLevelFrom(const char* text);

}  // namespace tarvex
