#include "cloud_agent/screen/redelivery_progress.h"

#include <algorithm>
#include <cstdio>

namespace agent {

namespace {

constexpr std::chrono::seconds kBetweenLines(1);

std::string DurationText(double seconds) {
  char text[48];
  if (seconds < 120) {
    snprintf(text, sizeof(text), "%.0f s", seconds);
  } else if (seconds < 7200) {
    snprintf(text, sizeof(text), "%.0f min", seconds / 60);
  } else {
    snprintf(text, sizeof(text), "%.1f h", seconds / 3600);
  }
  return text;
}

}  // namespace

bool RedeliveryProgress::OnPublished(TimePoint now) {
  if (is_running_) {
    return false;
  }
  is_running_ = true;
  started_ = now;
  last_line_.reset();
  done_ = 0;
  left_ = 0;
  return true;
}

void RedeliveryProgress::OnCount(std::int64_t undelivered) { left_ = undelivered; }

std::optional<std::string> RedeliveryProgress::OnDelivered(TimePoint now) {
  if (!is_running_) {
    return std::nullopt;
  }
  ++done_;
  left_ = std::max<std::int64_t>(left_ - 1, 0);
  if (left_ > 0 && last_line_ && now - *last_line_ < kBetweenLines) {
    return std::nullopt;
  }
  last_line_ = now;
  const double elapsed_s = std::max(std::chrono::duration<double>(now - started_).count(), 0.001);
  const double rate = static_cast<double>(done_) / elapsed_s;
  char text[160];
  snprintf(text, sizeof(text), "re-delivery: %lld done, %lld left, %.1f/s, %s to go",
           static_cast<long long>(done_), static_cast<long long>(left_), rate,
           DurationText(static_cast<double>(left_) / rate).c_str());
  return text;
}

void RedeliveryProgress::OnEnded() { is_running_ = false; }

}  // namespace agent
