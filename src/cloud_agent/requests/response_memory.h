// What requests with an idempotency key were answered with.
#pragma once

#include <chrono>
#include <cstddef>
#include <deque>
#include <map>
#include <optional>
#include <string>

#include <json/value.h>

#include "cloud_agent/requests/request.h"

namespace agent {

/// Remembers each response for a while, so that a request that is sent twice is carried
/// out once. Event thread only.
class ResponseMemory {
 public:
  using TimePoint = std::chrono::steady_clock::time_point;

  static constexpr std::chrono::minutes kTime{10};
  static constexpr std::size_t kMaxResponses = 1000;
  static constexpr std::size_t kMaxBytes = std::size_t{4} << 20;  ///< of responses and keys

  struct Known {
    bool is_same_request = false;  ///< or the key was used for another one
    Json::Value response;
  };

  /// What is known of the request's key; nothing where it has none.
  std::optional<Known> Find(const Request& request, TimePoint now);

  /// Remembers the response of a request that has a key of which nothing is known. The
  /// oldest are forgotten where there are too many.
  void Remember(const Request& request, const Json::Value& response, TimePoint now);

 private:
  struct Entry {
    std::size_t request_hash;
    Json::Value response;
    std::size_t bytes;
    TimePoint until;
  };

  void ForgetOldest();

  std::map<std::string, Entry> entries_;  // by key
  std::deque<std::string> keys_;          // the oldest first
  std::size_t bytes_ = 0;
};

}  // namespace agent
