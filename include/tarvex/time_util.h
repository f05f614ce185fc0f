// The device's clock. Callable from any thread.
#pragma once

#include <string>

namespace tarvex {

/// A local calendar time.
struct _TimeS {
  int year;
  int month;  ///< 1 to 12
  int day;    ///< 1 to 31
  int hour;
  int minute;
  int second;
};

class XTimeUtil {
 public:
  /// Seconds since 1970, UTC.
  static unsigned long long TimeSecond();

  /// Local time as "2026-01-31 23:59:59".
  static std::string TimeLocalToString(unsigned long long seconds);

  /// Splits a time into its local calendar fields.
  /// @param seconds since 1970; 0: now.
  static void TimeLocalMake(_TimeS* time, unsigned long long seconds);
};

}  // namespace tarvex
