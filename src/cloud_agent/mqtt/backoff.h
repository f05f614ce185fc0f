// How long to wait before the next attempt to connect.
#pragma once

#include <cstdint>
#include <functional>

namespace agent {

/// Doubles from attempt to attempt up to a limit. Each delay is any time up to its step, so that
/// many cameras, which all lose their broker in one moment, do not come back in one.
class Backoff {
 public:
  /// @param random_below gives a number from 0 to its argument, excluding it.
  Backoff(int min_ms, int max_ms, std::function<std::uint32_t(std::uint32_t)> random_below);

  /// @return milliseconds, at least 1.
  int NextDelay_ms();

  /// Starts from the shortest delay again.
  void Reset() { step_ms_ = min_ms_; }

 private:
  const int min_ms_;
  const int max_ms_;
  int step_ms_;
  std::function<std::uint32_t(std::uint32_t)> random_below_;
};

}  // namespace agent
