#include "cloud_agent/mqtt/backoff.h"

#include <algorithm>
#include <utility>

namespace agent {

Backoff::Backoff(int min_ms, int max_ms, std::function<std::uint32_t(std::uint32_t)> random_below)
    : min_ms_(std::max(1, min_ms)),
      max_ms_(std::max(min_ms_, max_ms)),
      step_ms_(min_ms_),
      random_below_(std::move(random_below)) {}

int Backoff::NextDelay_ms() {
  const int delay_ms =
      step_ms_ - static_cast<int>(random_below_(static_cast<std::uint32_t>(step_ms_)));
  step_ms_ = step_ms_ > max_ms_ / 2 ? max_ms_ : step_ms_ * 2;
  return delay_ms;
}

}  // namespace agent
