#include "plugin_model.h"

#include <algorithm>
#include <utility>

namespace mqttadapter_host {
namespace {

constexpr std::size_t kMaxPending = 20;
constexpr unsigned kMaxFetched = 5;

}  // namespace

void StoreModel::Mark(unsigned plate_id) {
  marked.insert(plate_id);
  undelivered.erase(std::remove(undelivered.begin(), undelivered.end(), plate_id),
                    undelivered.end());
}

PluginModel::PluginModel(StoreModel* store, std::function<void(std::function<void()>)> post,
                         std::function<void(std::function<void()>)> post_later,
                         std::function<void(unsigned long long, unsigned)> publish)
    : store_(store),
      post_(std::move(post)),
      post_later_(std::move(post_later)),
      publish_(std::move(publish)) {}

void PluginModel::OnBusResult(unsigned plate_id) {
  if (results_.size() < kMaxPending) {
    results_.push_back(plate_id);
  }
  post_([this] { PublishNewest(); });
}

void PluginModel::PublishNewest() {
  if (!results_.empty()) {
    publish_(11, results_.back());
  }
}

void PluginModel::OnMessagePublished(unsigned long long tag) {
  if (tag == 11) {
    ConfirmNewest();
  } else if (tag == 16) {
    ConfirmFirstOffline();
  }
}

void PluginModel::ConfirmNewest() {
  if (!results_.empty()) {
    const unsigned plate_id = results_.back();
    store_->Mark(plate_id);
    results_.erase(std::find(results_.begin(), results_.end(), plate_id));
  }
}

void PluginModel::ConfirmFirstOffline() {
  if (!FetchIfEmpty()) {
    return;
  }
  store_->Mark(offline_.back());
  offline_.pop_back();
  post_later_([this] { OfflineStep(); });
}

void PluginModel::OfflineStep() {
  const std::size_t count = offline_.empty() ? store_->undelivered.size() : offline_.size();
  if (count > 0 && FetchIfEmpty()) {
    publish_(16, offline_.back());
  }
}

bool PluginModel::FetchIfEmpty() {
  if (!offline_.empty()) {
    return true;
  }
  const std::size_t count =
      std::min<std::size_t>(std::min(remaining_, kMaxFetched), store_->undelivered.size());
  remaining_ -= static_cast<unsigned>(count);
  for (std::size_t i = count; i > 0; --i) {
    offline_.push_back(store_->undelivered[i - 1]);
  }
  return count > 0;
}

void PluginModel::Push(unsigned max_count) {
  remaining_ = max_count;
  if (max_count == 0) {
    offline_.clear();
  }
  post_([this] { OfflineStep(); });
}

void PluginModel::Stop() {
  remaining_ = 0;
  offline_.clear();
}

}  // namespace mqttadapter_host
