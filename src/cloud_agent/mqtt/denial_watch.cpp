#include "cloud_agent/mqtt/denial_watch.h"

#include <algorithm>

namespace agent {
namespace {

// The connection is looked at once a second while the event thread is busy.
constexpr std::chrono::seconds kJustBefore{3};

}  // namespace

std::string DenialWatch::DeniedTopic(TimePoint now) const {
  const auto oldest = std::min_element(
      unanswered_.begin(), unanswered_.end(),
      [](const auto& a, const auto& b) { return a.second.sent_at < b.second.sent_at; });
  const bool is_denied = oldest != unanswered_.end() && now - oldest->second.sent_at <= kJustBefore;
  return is_denied ? oldest->second.topic : "";
}

}  // namespace agent
