#include "cloud_agent/delivery/auto_push.h"

#include <utility>

namespace agent {

AutoPush::AutoPush(bool everything, DeliveryGuard* guard, Host host)
    : everything_(everything), guard_(guard), host_(std::move(host)) {}

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
  old_since_.reset();
  host_.post_after(kQuiet_ms, [this, watched = ++activity_] {
    if (watched == activity_) {
      is_quiet_ = is_link_up_;
      Look();
    }
  });
}

void AutoPush::Look() {
  if (!is_quiet_ || (!everything_ && !guard_->NobodyListens())) {
    return;
  }
  const std::optional<Undelivered> undelivered = host_.undelivered();
  if (!undelivered) {
    return;
  }
  if (guard_->NobodyListens()) {
    OfferOne(*undelivered);
  } else {
    AskForTheRest(*undelivered);
  }
}

// What the store does not have cannot be offered: then the next live result shows who listens.
void AutoPush::OfferOne(const Undelivered& undelivered) {
  if (undelivered.count > 0) {
    Push(everything_ ? kEverything : 1);
  } else {
    guard_->AssumeListener();
  }
}

void AutoPush::AskForTheRest(const Undelivered& undelivered) {
  if (!has_asked_) {
    has_asked_ = true;
    if (undelivered.count > 0) {
      Push(kEverything);
    }
    return;
  }
  if (undelivered.count <= static_cast<std::int64_t>(guard_->ResultsUnderWay())) {
    old_since_.reset();
    return;
  }
  const TimePoint now = host_.now();
  if (!old_since_) {
    old_since_ = now;
  } else if (now - *old_since_ >= kOld) {
    Push(kEverything);
  }
}

void AutoPush::Push(int max_count) {
  WatchForQuiet();
  host_.push(max_count);
}

}  // namespace agent
