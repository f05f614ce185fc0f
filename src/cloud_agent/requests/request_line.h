// The requests that wait for their turn, between the network thread and the event thread.
#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <mutex>
#include <optional>

#include "cloud_agent/mqtt/link.h"

namespace agent {

class RequestLine {
 public:
  /// @param max_waiting how many may wait.
  /// @param post        runs a task on the event thread; callable from any thread.
  RequestLine(std::size_t max_waiting, std::function<void(std::function<void()>)> post);

  /// @param on_turn run on the event thread once for each request that was added. To be
  ///                called before the first Add().
  void Open(std::function<void()> on_turn) { on_turn_ = std::move(on_turn); }

  /// Any thread.
  /// @return false, with the request as it was: too many wait.
  bool Add(InboundRequest* request);

  /// Runs on_turn once more.
  void PostTurn() { post_(on_turn_); }

  /// The request that has waited longest.
  std::optional<InboundRequest> Take();

  /// How many were not added.
  std::uint64_t turned_away() const;

 private:
  const std::size_t max_waiting_;
  const std::function<void(std::function<void()>)> post_;
  std::function<void()> on_turn_;

  mutable std::mutex mutex_;  // guards what follows
  std::deque<InboundRequest> waiting_;
  std::uint64_t turned_away_ = 0;
};

}  // namespace agent
