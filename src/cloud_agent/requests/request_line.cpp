#include "cloud_agent/requests/request_line.h"

#include <utility>

namespace agent {

RequestLine::RequestLine(std::size_t max_waiting, std::function<void(std::function<void()>)> post)
    : max_waiting_(max_waiting), post_(std::move(post)) {}

bool RequestLine::Add(InboundRequest* request) {
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    if (waiting_.size() >= max_waiting_) {
      ++turned_away_;
      return false;
    }
    waiting_.push_back(std::move(*request));
  }
  PostTurn();
  return true;
}

std::optional<InboundRequest> RequestLine::Take() {
  const std::lock_guard<std::mutex> lock(mutex_);
  if (waiting_.empty()) {
    return std::nullopt;
  }
  std::optional<InboundRequest> first = std::move(waiting_.front());
  waiting_.pop_front();
  return first;
}

std::uint64_t RequestLine::turned_away() const {
  const std::lock_guard<std::mutex> lock(mutex_);
  return turned_away_;
}

}  // namespace agent
