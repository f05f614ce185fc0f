// The results of one camera that came at the broker: how many lately, and the latest.
#pragma once

#include <array>
#include <cstdint>
#include <string>

#include <json/value.h>

#include "console/passports/passport.h"

namespace console {

/// Counts what came in the last 60 seconds, to a second. A clock that is set back, or that jumps
/// a minute ahead, has it count anew. One thread.
class RecentResults {
 public:
  /// @param plate its text; may be empty.
  void OnArrived(const std::string& plate, Time_us now_us);

  /// @return whether the number has changed.
  bool OnTime(Time_us now_us);

  /// {"per_minute", "plate", "plate_at_us"}; null before the first.
  Json::Value ToJson() const;

 private:
  static constexpr std::int64_t kCounted_s = 60;

  std::array<std::uint32_t, kCounted_s> of_second_{};  // at the second modulo 60
  std::int64_t second_ = 0;                            // the latest that is counted
  std::uint64_t count_ = 0;                            // the sum of all
  std::string plate_;
  Time_us plate_at_us_ = 0;  // 0: there was none
};

}  // namespace console
