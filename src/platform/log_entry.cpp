#include "platform/log_entry.h"

#include <array>
#include <cstdio>
#include <cstring>
#include <ctime>

namespace tarvex {
namespace {

const char* PriorityName(int priority) {
  static constexpr std::array<const char*, 8> kNames = {"emergency", "alert",  "critical", "error",
                                                        "warning",   "notice", "info",     "debug"};
  return priority >= 0 && priority < 8 ? kNames[static_cast<std::size_t>(priority)] : "unknown";
}

std::string LocalTime(std::chrono::system_clock::time_point time) {
  const std::time_t seconds = std::chrono::system_clock::to_time_t(time);
  const auto since_1970 = time.time_since_epoch();
  const auto milliseconds =
      std::chrono::duration_cast<std::chrono::milliseconds>(since_1970).count() % 1000;
  std::tm fields{};
  localtime_r(&seconds, &fields);
  std::array<char, 32> day{};
  (void)std::strftime(day.data(), day.size(), "%Y-%m-%d %H:%M:%S", &fields);
  std::array<char, 40> text{};
  (void)std::snprintf(text.data(), text.size(), "%s.%03d", day.data(),
                      static_cast<int>(milliseconds));
  return text.data();
}

}  // namespace

std::string LogEntry(std::chrono::system_clock::time_point time, int priority, const char* source,
                     const char* function, int line, const std::string& text) {
  std::string entry = LocalTime(time);
  entry.append(" ").append(PriorityName(priority));
  entry.append(" ").append(source == nullptr ? "-" : source);
  entry.append(" ").append(function == nullptr ? "-" : function);
  entry.append(":").append(std::to_string(line)).append(" ").append(text).append("\n");
  return entry;
}

int LogLevelFrom(const char* text) {
  constexpr int kDefault = 6;
  const bool is_level = text != nullptr && text[0] >= '0' && text[0] <= '7' && text[1] == '\0';
  return is_level ? text[0] - '0' : kDefault;
}

}  // namespace tarvex
