// How far the re-delivery of a camera's stored results has come.
#pragma once

#include <cstdint>
#include <optional>

#include <json/value.h>

#include "console/passports/passport.h"

namespace console {

/// Begins with the first re-delivered result that is published and ends when none has
/// followed for a while, or nothing is left. One thread.
class Redelivery {
 public:
  void OnPublished(Time_us now_us);
  void OnAcknowledged(Time_us now_us);

  /// @param left undelivered in the camera's store; empty where that is not known.
  /// @return whether something has changed.
  bool OnTime(std::optional<std::int64_t> left, Time_us now_us);

  /// {"running", "done", "left", "per_second", "to_go_s"}; null before the first. The rate is
  /// 0 until two are done.
  Json::Value ToJson() const;

 private:
  bool is_running_ = false;
  bool has_begun_ = false;  // ever
  Time_us first_done_us_ = 0;
  Time_us latest_done_us_ = 0;
  Time_us latest_us_ = 0;
  std::int64_t done_ = 0;
  std::optional<std::int64_t> left_;
};

}  // namespace console
