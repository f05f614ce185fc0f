// Publications that a broker of MQTT 3.1.1 may deny: all that it can do is to end the connection.
#pragma once

#include <chrono>
#include <map>
#include <string>

namespace agent {

/// Of one connection. Without it a denied publication looks like a lost link.
class DenialWatch {
 public:
  using TimePoint = std::chrono::steady_clock::time_point;

  void OnPublished(int message_id, const std::string& topic, TimePoint now) {
    unanswered_[message_id] = {topic, now};
  }
  void OnAnswered(int message_id) { unanswered_.erase(message_id); }

  /// The broker has ended the connection.
  /// @return the topic of the oldest publication that it has not acknowledged, when that was
  ///         sent just before; otherwise empty.
  std::string DeniedTopic(TimePoint now) const;

 private:
  struct Publication {
    std::string topic;
    TimePoint sent_at;
  };
  std::map<int, Publication> unanswered_;  // by message id
};

}  // namespace agent
