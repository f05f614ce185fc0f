#include "virtual_camera/device/camera_clock.h"

#include <algorithm>
#include <charconv>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <iterator>
#include <optional>
#include <string_view>

#include "virtual_camera/device/request_error.h"

namespace virtual_camera {

namespace {

constexpr char kOffsetSetting[] = "clock_offset_us";

// A leap second may be numbered 60, and 61 is taken too; both run on into the next minute.
bool IsDate(const std::tm& wanted, const std::tm& made) {
  return wanted.tm_sec > 59 || (wanted.tm_mday == made.tm_mday && wanted.tm_mon == made.tm_mon &&
                                wanted.tm_year == made.tm_year);
}

bool IsInRange(const std::tm& time) {
  return time.tm_mon >= 0 && time.tm_mon <= 11 && time.tm_mday >= 1 && time.tm_mday <= 31 &&
         time.tm_hour >= 0 && time.tm_hour <= 23 && time.tm_min >= 0 && time.tm_min <= 59 &&
         time.tm_sec >= 0 && time.tm_sec <= 61;
}

// Takes a number of that width from the front of a text, blanks before it included.
std::optional<int> TakeNumber(std::string_view& text, size_t width) {
  const std::string_view field = text.substr(0, width);
  const size_t digits = std::min(field.find_first_not_of(' '), field.size());
  int number = 0;
  const char* const end = field.data() + field.size();
  const auto parsed = std::from_chars(field.data() + digits, end, number);
  if (field.size() != width || parsed.ec != std::errc() || parsed.ptr != end || number < 0) {
    return std::nullopt;
  }
  text.remove_prefix(width);
  return number;
}

// "year-month-day hour:minute:second" in fields of fixed width.
std::optional<std::tm> Parse(std::string_view text) {
  std::tm time{};
  int* const fields[] = {&time.tm_year, &time.tm_mon, &time.tm_mday,
                         &time.tm_hour, &time.tm_min, &time.tm_sec};
  constexpr std::string_view kAfter = "-- ::";
  for (size_t i = 0; i < std::size(fields); ++i) {
    const std::optional<int> number = TakeNumber(text, i == 0 ? 4 : 2);
    const bool is_last = i == kAfter.size();
    if (!number || (is_last ? !text.empty() : text.empty() || text.front() != kAfter[i])) {
      return std::nullopt;
    }
    *fields[i] = *number;
    text.remove_prefix(is_last ? 0 : 1);
  }
  time.tm_year -= 1900;
  time.tm_mon -= 1;
  time.tm_isdst = -1;
  return IsInRange(time) ? std::optional<std::tm>(time) : std::nullopt;
}

}  // namespace

CameraClock::CameraClock(Timeline& timeline, Settings& settings)
    : timeline_(timeline), settings_(settings) {
  if (const auto kept = settings.Text(kOffsetSetting)) {
    offset_us_ = std::strtoll(kept->c_str(), nullptr, 10);
  }
}

int64_t CameraClock::NowUs() const { return timeline_.SystemUs() + offset_us_; }

CalendarTime CameraClock::Now() const {
  const int64_t now_us = NowUs();
  const std::time_t seconds = now_us / kSecond_us;
  std::tm local{};
  localtime_r(&seconds, &local);
  CalendarTime time;
  time.sec = static_cast<uint32_t>(seconds);
  time.usec = static_cast<uint32_t>(now_us % kSecond_us);
  time.year = local.tm_year + 1900;
  time.month = local.tm_mon + 1;
  time.day = local.tm_mday;
  time.hour = local.tm_hour;
  time.minute = local.tm_min;
  time.second = local.tm_sec;
  return time;
}

std::string CameraClock::NowText() const {
  const CalendarTime now = Now();
  char text[64];
  (void)std::snprintf(text, sizeof(text), "%04d-%02d-%02d %02d:%02d:%02d", now.year, now.month,
                      now.day, now.hour, now.minute, now.second);
  return text;
}

void CameraClock::SetLocal(const std::string& text) {
  const std::optional<std::tm> wanted = Parse(text);
  if (!wanted) {
    throw RequestError("\"" + text + "\" is not a date and time");
  }
  std::tm made = *wanted;
  const std::time_t seconds = std::mktime(&made);
  if (seconds < 0 || seconds > UINT32_MAX) {
    throw RequestError("\"" + text + "\" is outside of the clock's range");
  }
  if (!IsDate(*wanted, made)) {
    throw RequestError("the calendar has no \"" + text + "\"");
  }
  const int64_t offset_us = int64_t{seconds} * kSecond_us - timeline_.SystemUs();
  settings_.SetText(kOffsetSetting, std::to_string(offset_us));
  offset_us_ = offset_us;
}

}  // namespace virtual_camera
