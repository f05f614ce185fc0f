#include "platform/log_entry.h"

#include <array>
#include <ctime>

namespace tarvex {
namespace {

const char* PriorityName(int priority) {
  static constexpr std::array<const char*, 8> kNames = {"emergency", "alert",  "critical", "error",
                                                        "warning",   "notice", "info",     "debug"};
  return priority >= 0 && priority < 8 ? kNames[static_cast<std::size_t>(priority)] : "unknown";
}

/// To the second. Kept until the next one: to make it costs more than the rest of an entry.
const char* LocalSecond(std::time_t seconds) {
  // Nothing that dies: static objects may log as they do.
  thread_local std::time_t known = -1;
  thread_local std::array<char, 32> text{};
  if (seconds != known) {
    std::tm fields{};
    localtime_r(&seconds, &fields);
    (void)std::strftime(text.data(), text.size(), "%Y-%m-%d %H:%M:%S", &fields);
    known = seconds;
  }
  return text.data();
}

}  // namespace

std::string LogEntry(std::chrono::system_clock::time_point time, int priority, const char* source,
                     const char* function, int line, const std::string& text) {
  const auto since_1970 = time.time_since_epoch();
  const auto milliseconds =
      std::chrono::duration_cast<std::chrono::milliseconds>(since_1970).count() % 1000;
  std::string entry;
  entry.reserve(text.size() + 100);
  entry.append(LocalSecond(std::chrono::system_clock::to_time_t(time)));
  // Three digits.
  entry.append(".").append(std::to_string(1000 + milliseconds), 1);
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
