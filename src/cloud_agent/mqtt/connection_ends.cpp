#include "cloud_agent/mqtt/connection_ends.h"

#include <algorithm>
#include <utility>

namespace agent {
namespace {

// A connection that stood for less was a short one in any case.
constexpr std::chrono::milliseconds kStable{5000};
// Not every broker says that it was the other client; so many in a row make it likely.
constexpr int kSuspiciousConnections = 3;
// The first can be a link that was lost just then.
constexpr int kCertainDenials = 2;

std::string DenialText(const std::string& topic, int denials) {
  const std::string allowed = "look at what the broker allows this user";
  if (denials < kCertainDenials) {
    return "after " + topic.substr(0, 200) + " was published, and not acknowledged: if " +
           "that comes again, " + allowed;
  }
  return "the broker refuses to publish " + topic.substr(0, 200) + ": it ended " +
         std::to_string(denials) + " connections in a row right after that; " + allowed;
}

}  // namespace

ConnectionEnds::ConnectionEnds(std::string client_id, std::chrono::milliseconds longest_delay)
    : client_id_(std::move(client_id)), stable_(std::max(kStable, 2 * longest_delay)) {}

std::string ConnectionEnds::Add(const ConnectionEnd& end) {
  was_good_ = end.was_ready && !end.was_taken_over && end.stood >= stable_;
  if (!end.was_ready) {
    return end.reason;
  }
  denials_ = !end.denied_topic.empty() && end.denied_topic == denied_topic_ ? denials_ + 1 : 1;
  denied_topic_ = end.denied_topic;
  if (was_good_) {
    short_connections_ = 0;
  } else {
    ++short_connections_;
  }
  if (!end.denied_topic.empty()) {
    const std::string text = DenialText(end.denied_topic, denials_);
    return denials_ < kCertainDenials ? end.reason + " " + text : text;
  }
  if (short_connections_ >= kSuspiciousConnections && !end.was_taken_over) {
    return end.reason + "; " + std::to_string(short_connections_) +
           " connections in a row did not last: another client may use the client id " + client_id_;
  }
  return end.reason;
}

}  // namespace agent
