#include "cloud_agent/picture_index.h"

namespace agent {

std::optional<std::string> PictureIndex::Add(const std::string& name) {
  if (!known_.insert(name).second) {
    return std::nullopt;
  }
  oldest_first_.push_back(name);
  if (oldest_first_.size() <= limit_) {
    return std::nullopt;
  }
  std::string oldest = std::move(oldest_first_.front());
  oldest_first_.pop_front();
  known_.erase(oldest);
  return oldest;
}

}  // namespace agent
