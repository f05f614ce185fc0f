// How many events are due at an even rate.
#pragma once

#include <algorithm>
#include <cmath>
#include <cstdint>

namespace virtual_camera {

/// Counts by the times that it is given, so that the rate is right on average. At most one
/// second's events are due at a time; more are dropped and counted as given up.
class Pace {
 public:
  /// @param per_second 0 or more; 0: nothing is ever due.
  Pace(double per_second, int64_t now_ms) : per_second_(per_second), last_ms_(now_ms) {}

  /// How many are due now, besides those taken before.
  int64_t Due(int64_t now_ms) {
    owed_ += per_second_ * static_cast<double>(now_ms - last_ms_) / 1000;
    last_ms_ = now_ms;
    const double most = std::max(1.0, per_second_);
    if (owed_ > most) {
      given_up_ += static_cast<int64_t>(owed_ - most);
      owed_ = most;
    }
    return static_cast<int64_t>(owed_);
  }

  /// To be called for each event of those that were due.
  void Take() { owed_ -= 1; }

  /// Milliseconds until the next is due, at least 1 and at most 1000.
  int64_t NextInMs() const {
    if (per_second_ <= 0) {
      return 1000;
    }
    const double ms = std::ceil((1 - owed_) * 1000 / per_second_);
    return static_cast<int64_t>(std::clamp(ms, 1.0, 1000.0));
  }

  int64_t given_up() const { return given_up_; }

 private:
  double per_second_;
  int64_t last_ms_;
  double owed_ = 0;
  int64_t given_up_ = 0;
};

}  // namespace virtual_camera
