// The messages whose acknowledgement the broker owes, and a bound to their number.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>

namespace agent {

/// The caller locks.
class AckLedger {
 public:
  using TimePoint = std::chrono::steady_clock::time_point;

  /// Responses to a flood of requests included.
  static constexpr std::size_t kMostBytes = std::size_t{16} << 20;

  /// @param max_publications of those that somebody waits for.
  explicit AckLedger(std::size_t max_publications) : max_publications_(max_publications) {}

  bool HasRoomForPublication() const { return publications_ < max_publications_; }

  /// @param message_bytes of topic and payload.
  bool HasRoom(std::size_t message_bytes) const;

  /// @param message_id  the MQTT library's number for it.
  /// @param publication 0 when nobody waits for its acknowledgement.
  void Add(int message_id, std::uint64_t publication, std::size_t message_bytes, TimePoint sent_at);

  /// Settles a debt.
  /// @return the publication, or 0; empty for a message that is not in the ledger.
  std::optional<std::uint64_t> Take(int message_id);

  bool IsEmpty() const { return entries_.empty(); }
  bool HasOneSentBefore(TimePoint limit) const;
  void Clear();

 private:
  struct Entry {
    std::uint64_t publication;
    std::size_t cost_bytes;
    TimePoint sent_at;
  };

  const std::size_t max_publications_;
  std::map<int, Entry> entries_;
  std::size_t cost_bytes_ = 0;
  std::size_t publications_ = 0;
};

}  // namespace agent
