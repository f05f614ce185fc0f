#include "cloud_agent/ack_ledger.h"

#include <algorithm>

namespace agent {
namespace {

// What a message costs beside its topic and payload, roughly.
constexpr std::size_t kOverhead_bytes = 512;

}  // namespace

bool AckLedger::HasRoom(std::size_t message_bytes) const {
  return cost_bytes_ + message_bytes + kOverhead_bytes <= kMostBytes;
}

void AckLedger::Add(int message_id, std::uint64_t publication, std::size_t message_bytes,
                    TimePoint sent_at) {
  Take(message_id);
  const std::size_t cost_bytes = message_bytes + kOverhead_bytes;
  entries_[message_id] = {publication, cost_bytes, sent_at};
  cost_bytes_ += cost_bytes;
  publications_ += publication != 0 ? 1 : 0;
}

std::optional<std::uint64_t> AckLedger::Take(int message_id) {
  const auto found = entries_.find(message_id);
  if (found == entries_.end()) {
    return std::nullopt;
  }
  const std::uint64_t publication = found->second.publication;
  cost_bytes_ -= found->second.cost_bytes;
  publications_ -= publication != 0 ? 1 : 0;
  entries_.erase(found);
  return publication;
}

bool AckLedger::HasOneSentBefore(TimePoint limit) const {
  return std::any_of(entries_.begin(), entries_.end(),
                     [limit](const auto& entry) { return entry.second.sent_at < limit; });
}

void AckLedger::Clear() {
  entries_.clear();
  cost_bytes_ = 0;
  publications_ = 0;
}

}  // namespace agent
