// How far a re-delivery of stored results has come, for the person who watches.
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>

namespace agent {

/// Begins with the first record and ends with the count notice that follows the last.
/// The clock is the caller's. Used on the event thread.
class RedeliveryProgress {
 public:
  using TimePoint = std::chrono::steady_clock::time_point;

  /// A record is on its way. @return true: it is the first, and the store should be asked
  /// how many there are.
  bool OnPublished(TimePoint now);

  /// What the store counts as undelivered now.
  void OnCount(std::int64_t undelivered);

  /// A record was acknowledged and marked as delivered.
  /// @return the line to print; at most one a second, and the one that ends it.
  std::optional<std::string> OnDelivered(TimePoint now);

  /// No more records follow.
  void OnEnded();

 private:
  bool is_running_ = false;
  TimePoint started_;
  std::optional<TimePoint> last_line_;
  std::int64_t done_ = 0;
  std::int64_t left_ = 0;
};

}  // namespace agent
