#include "cloud_agent/requests/response_memory.h"

#include <functional>
#include <utility>

#include "json_text.h"

namespace agent {
namespace {

std::size_t HashOf(const Request& request) {
  std::string payload;
  Json::Json2String(request.payload, payload);
  return std::hash<std::string>()(request.name + '\n' + request.version + '\n' + payload);
}

}  // namespace

std::optional<ResponseMemory::Known> ResponseMemory::Find(const Request& request, TimePoint now) {
  while (!keys_.empty() && entries_.at(keys_.front()).until <= now) {
    ForgetOldest();
  }
  const auto found = entries_.find(request.idempotency_key);
  if (found == entries_.end()) {
    return std::nullopt;
  }
  return Known{found->second.request_hash == HashOf(request), found->second.response};
}

void ResponseMemory::Remember(const Request& request, const Json::Value& response, TimePoint now) {
  const std::string& key = request.idempotency_key;
  std::string text;
  if (key.empty() || !Json::Json2String(response, text)) {
    return;
  }
  const Entry entry{HashOf(request), response, key.size() + text.size(), now + kTime};
  if (!entries_.emplace(key, entry).second) {
    return;
  }
  bytes_ += entry.bytes;
  keys_.push_back(key);
  while (keys_.size() > kMaxResponses || bytes_ > kMaxBytes) {
    ForgetOldest();
  }
}

void ResponseMemory::ForgetOldest() {
  const auto oldest = entries_.find(keys_.front());
  bytes_ -= oldest->second.bytes;
  entries_.erase(oldest);
  keys_.pop_front();
}

}  // namespace agent
