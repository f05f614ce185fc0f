// The camera's own clock: the host's plus an offset, which setting the clock changes.
#pragma once

#include <cstdint>
#include <string>

#include "virtual_camera/store/settings.h"
#include "virtual_camera/surroundings/timeline.h"

namespace virtual_camera {

constexpr int64_t kSecond_us = 1000000;

/// A moment as a result carries it.
struct CalendarTime {
  uint32_t sec = 0;  ///< since 1970
  uint32_t usec = 0;
  int year = 0;  ///< local calendar, as the rest
  int month = 0;
  int day = 0;
  int hour = 0;
  int minute = 0;
  int second = 0;
};

/// Keeps its offset over restarts. The host's clock is never set. Used on the camera's
/// thread.
class CameraClock {
 public:
  /// Both must outlive the clock.
  CameraClock(Timeline& timeline, Settings& settings);

  /// Microseconds since 1970 by the camera's clock.
  int64_t NowUs() const;
  CalendarTime Now() const;

  /// Now as "2026-01-31 23:59:59", local.
  std::string NowText() const;

  /// Sets the clock to a local time, "year-month-day hour:minute:second" with blanks or
  /// zeros in front of short numbers, 4 and 2 characters wide. Throws RequestError for a text of
  /// another form and for a day that the calendar does not have.
  void SetLocal(const std::string& text);

  int64_t offset_us() const { return offset_us_; }

 private:
  Timeline& timeline_;
  Settings& settings_;
  int64_t offset_us_ = 0;
};

}  // namespace virtual_camera
