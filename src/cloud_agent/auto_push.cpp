#include "cloud_agent/auto_push.h"

#include <utility>

namespace agent {

AutoPush::AutoPush(std::function<void(int, std::function<void()>)> post_after,
                   std::function<std::optional<Undelivered>()> undelivered,
                   std::function<void()> push)
    : post_after_(std::move(post_after)),
      undelivered_(std::move(undelivered)),
      push_(std::move(push)) {}

// A step that was posted before the loss may still come, and carry on by itself.
void AutoPush::OnLinkUp() {
  is_link_up_ = true;
  has_asked_ = false;
  WatchForQuiet();
}

void AutoPush::OnLinkDown() {
  is_link_up_ = false;
  is_quiet_ = false;
  ++activity_;
}

void AutoPush::OnOfflineActivity() { WatchForQuiet(); }

void AutoPush::WatchForQuiet() {
  is_quiet_ = false;
  post_after_(kQuiet_ms, [this, watched = ++activity_] { OnQuiet(watched); });
}

void AutoPush::OnQuiet(std::uint64_t watched) {
  if (watched != activity_ || !is_link_up_) {
    return;
  }
  is_quiet_ = true;
  if (has_asked_) {
    return;
  }
  const std::optional<Undelivered> undelivered = undelivered_();
  if (!undelivered) {
    return;
  }
  has_asked_ = true;
  if (undelivered->count > 0) {
    WatchForQuiet();
    push_();
  }
}

void AutoPush::OnTick(const std::optional<Undelivered>& undelivered) {
  if (!is_quiet_ || !undelivered || undelivered->count <= 0) {
    return;
  }
  if (!has_asked_ || undelivered->oldest_age_s.value_or(0) >= kOld_s) {
    has_asked_ = true;
    WatchForQuiet();
    push_();
  }
}

Json::Value PushEverythingRequest() {
  Json::Value payload(Json::objectValue);
  payload["type"] = "check_offline_record";
  payload["body"]["enable"] = "push";
  payload["body"]["max_count"] = 1000000;
  payload["body"]["min_id"] = 0;
  return payload;
}

}  // namespace agent
