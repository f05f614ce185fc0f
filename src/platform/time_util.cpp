#include "tarvex/time_util.h"

#include <array>
#include <cstdio>
#include <ctime>

namespace tarvex {
namespace {

/// All zero for a time that the calendar does not reach.
std::tm LocalFields(unsigned long long seconds) {
  const auto time = static_cast<std::time_t>(seconds);
  std::tm fields{};
  if (localtime_r(&time, &fields) == nullptr) {
    fields = std::tm{};
  }
  return fields;
}

}  // namespace

unsigned long long XTimeUtil::TimeSecond() {
  return static_cast<unsigned long long>(std::time(nullptr));
}

std::string XTimeUtil::TimeLocalToString(unsigned long long seconds) {
  const std::tm fields = LocalFields(seconds);
  std::array<char, 80> text{};
  (void)std::snprintf(text.data(), text.size(), "%04ld-%02d-%02d %02d:%02d:%02d",
                      fields.tm_year + 1900L, fields.tm_mon + 1, fields.tm_mday, fields.tm_hour,
                      fields.tm_min, fields.tm_sec);
  return text.data();
}

void XTimeUtil::TimeLocalMake(_TimeS* time, unsigned long long seconds) {
  const std::tm fields = LocalFields(seconds == 0 ? TimeSecond() : seconds);
  time->year = static_cast<int>(fields.tm_year + 1900L);
  time->month = fields.tm_mon + 1;
  time->day = fields.tm_mday;
  time->hour = fields.tm_hour;
  time->minute = fields.tm_min;
  time->second = fields.tm_sec;
}

}  // namespace tarvex
