#include "platform/kv_copy.h"

#include <utility>

namespace tarvex {

bool KvCopy::Get(const std::string& key, std::string* value) const {
  const std::lock_guard<std::mutex> lock(mutex_);
  const auto found = values_.find(key);
  if (found == values_.end()) {
    return false;
  }
  *value = found->second;
  return true;
}

void KvCopy::Replace(Values values) {
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    values_.swap(values);
    is_complete_ = true;
  }
  replaced_.notify_all();
}

void KvCopy::Apply(const KvChange& change) {
  const std::lock_guard<std::mutex> lock(mutex_);
  Apply(change, &values_);
}

void KvCopy::Apply(const KvChange& change, Values* values) {
  if (change.is_removal) {
    values->erase(change.key);
  } else {
    (*values)[change.key] = change.value;
  }
}

bool KvCopy::WaitForFirst(std::chrono::milliseconds deadline) const {
  std::unique_lock<std::mutex> lock(mutex_);
  return replaced_.wait_for(lock, deadline, [this] { return is_complete_; });
}

}  // namespace tarvex
