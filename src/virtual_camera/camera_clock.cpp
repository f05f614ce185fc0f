#include "virtual_camera/camera_clock.h"

#include <cstdio>
#include <cstdlib>
#include <ctime>

#include "virtual_camera/request_error.h"

namespace virtual_camera {

namespace {

constexpr char kOffsetSetting[] = "clock_offset_us";
constexpr int64_t kSecond_us = 1000000;

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
  std::snprintf(text, sizeof(text), "%04d-%02d-%02d %02d:%02d:%02d", now.year, now.month, now.day,
                now.hour, now.minute, now.second);
  return text;
}

void CameraClock::SetLocal(const std::string& text) {
  std::tm wanted{};
  int end = -1;
  // Each number may have blanks in front, which the conversion skips.
  // NOLINTNEXTLINE(cert-err34-c): widths keep the numbers in range, the count is checked.
  const int fields =
      std::sscanf(text.c_str(), "%4d-%2d-%2d %2d:%2d:%2d%n", &wanted.tm_year, &wanted.tm_mon,
                  &wanted.tm_mday, &wanted.tm_hour, &wanted.tm_min, &wanted.tm_sec, &end);
  wanted.tm_year -= 1900;
  wanted.tm_mon -= 1;
  wanted.tm_isdst = -1;
  if (fields != 6 || end != static_cast<int>(text.size()) || !IsInRange(wanted)) {
    throw RequestError("\"" + text + "\" is not a date and time");
  }
  std::tm made = wanted;
  const std::time_t seconds = std::mktime(&made);
  if (seconds < 0 || seconds > UINT32_MAX) {
    throw RequestError("\"" + text + "\" is outside of the clock's range");
  }
  if (!IsDate(wanted, made)) {
    throw RequestError("the calendar has no \"" + text + "\"");
  }
  const int64_t offset_us = int64_t{seconds} * kSecond_us - timeline_.SystemUs();
  settings_.SetText(kOffsetSetting, std::to_string(offset_us));
  offset_us_ = offset_us;
}

}  // namespace virtual_camera
