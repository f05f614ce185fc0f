#include "mqttadapter_host/delivery_guard.h"

#include <algorithm>
#include <utility>

#include "mqttadapter_host/plugin_protocol.h"

namespace mqttadapter_host {
namespace {

// Of all messages that the broker owes an acknowledgement for.
constexpr std::size_t kMaxUnacknowledged_bytes = std::size_t{16} << 20;

// What a message costs beside its topic and payload, roughly.
constexpr std::size_t kOverhead_bytes = 512;

// Both ways in which the cloud makes the plug-in forget the records it has fetched.
bool EmptiesOfflineQueue(const std::string& request_name, const Json::Value& payload) {
  if (request_name != kOfflineRequest) {
    return false;
  }
  const Json::Value& body = Member(payload, "body");
  const Json::Value& enable = Member(body, "enable");
  if (!enable.isString()) {
    return false;
  }
  if (enable.asString() == "stop") {
    return true;
  }
  const Json::Value& max_count = Member(body, "max_count");
  return enable.asString() == "push" && max_count.isConvertibleTo(Json::intValue) &&
         max_count.asInt() == 0;
}

}  // namespace

DeliveryGuard::DeliveryGuard(const Options& options,
                             std::function<void(std::function<void()>)> post,
                             std::function<void(unsigned long long)> confirm)
    : options_(options), post_(std::move(post)), confirm_(std::move(confirm)) {}

void DeliveryGuard::OnBusMessage(const std::string& topic, std::function<void()> deliver) {
  if (topic != kResultTopic || !options_.duties.one_at_a_time) {
    deliver();
  } else if (!is_link_up_ || nobody_listens_) {
    ++counters_.results_held_back;
  } else if (waiting_.empty() && in_hand_.size() < options_.results_in_flight) {
    HandOver(std::move(deliver));
  } else if (waiting_.size() < options_.results_waiting) {
    waiting_.push_back(std::move(deliver));
  } else {
    ++counters_.results_overflowed;
  }
}

void DeliveryGuard::HandOver(std::function<void()> deliver) {
  const std::uint64_t serial = ++last_serial_;
  in_hand_.push_back({serial, 0});
  deliver();
  // The plug-in has posted its own publishing step by now, so the check comes after it.
  post_([this, serial] { CheckThatPublished(serial); });
}

void DeliveryGuard::CheckThatPublished(std::uint64_t serial) {
  const auto result =
      std::find_if(in_hand_.begin(), in_hand_.end(),
                   [serial](const ResultInHand& in_hand) { return in_hand.serial == serial; });
  if (result != in_hand_.end() && result->publication == 0 && options_.duties.release_unpublished) {
    ++counters_.results_without_publication;
    Release(result);
  }
}

// Posted, because the plug-in may be in the midst of the publication that ended the wait.
void DeliveryGuard::Release(std::deque<ResultInHand>::iterator result) {
  in_hand_.erase(result);
  post_([this] { HandOverWaiting(); });
}

void DeliveryGuard::HandOverWaiting() {
  while (!waiting_.empty() && in_hand_.size() < options_.results_in_flight) {
    std::function<void()> deliver = std::move(waiting_.front());
    waiting_.pop_front();
    HandOver(std::move(deliver));
  }
}

void DeliveryGuard::KeepWaitingInStore() {
  counters_.results_held_back += waiting_.size();
  waiting_.clear();
}

std::deque<DeliveryGuard::ResultInHand>::iterator DeliveryGuard::FindInHand(
    std::uint64_t publication) {
  return std::find_if(in_hand_.begin(), in_hand_.end(), [publication](const ResultInHand& in_hand) {
    return in_hand.publication == publication;
  });
}

bool DeliveryGuard::MayPublish(unsigned long long tag, const Json::Value& payload) {
  if (tag != kOfflineResultTag || !offline_) {
    return true;
  }
  // What the plug-in wants to publish is what its queue begins with now.
  const boost::optional<Json::UInt> plate_id = PlateId(payload);
  offline_->heads_the_queue = plate_id && plate_id == offline_->plate_id;
  if (!options_.duties.one_offline) {
    return true;
  }
  ++counters_.dropped_offline_busy;
  return false;
}

bool DeliveryGuard::HasRoom(unsigned long long tag, std::size_t bytes) const {
  return unacknowledged_bytes_ + bytes + kOverhead_bytes <= kMaxUnacknowledged_bytes &&
         (tag == 0 || unacknowledged_of_plugin_ < options_.max_unacknowledged);
}

void DeliveryGuard::OnPublished(std::uint64_t publication, Sent sent) {
  if (sent.tag == kOfflineResultTag && !offline_) {
    offline_ = OfflineInFlight{publication, sent.plate_id, true};
  } else if (sent.tag == kLiveResultTag) {
    const auto result = FindInHand(0);
    if (result != in_hand_.end()) {
      result->publication = publication;
    }
  }
  unacknowledged_bytes_ += sent.bytes + kOverhead_bytes;
  unacknowledged_of_plugin_ += sent.tag != 0 ? 1U : 0U;
  unacknowledged_[publication] = std::move(sent);
}

void DeliveryGuard::OnNotPublished(unsigned long long tag) {
  const auto result = FindInHand(0);
  if (tag == kLiveResultTag && result != in_hand_.end()) {
    Release(result);
  }
}

boost::optional<Sent> DeliveryGuard::OnAcknowledged(std::uint64_t publication, Answer answer) {
  const auto found = unacknowledged_.find(publication);
  if (found == unacknowledged_.end()) {
    ++counters_.ignored_acks;
    return boost::none;
  }
  boost::optional<Sent> sent = std::move(found->second);
  unacknowledged_.erase(found);
  unacknowledged_bytes_ -= sent->bytes + kOverhead_bytes;
  unacknowledged_of_plugin_ -= sent->tag != 0 ? 1U : 0U;
  if (sent->tag != 0) {
    Settle(publication, sent->tag, answer);
  }
  return sent;
}

void DeliveryGuard::Settle(std::uint64_t publication, unsigned long long tag, Answer answer) {
  const bool is_unheard = answer == Answer::kUnheard && IsResult(tag);
  if (is_unheard) {
    ++counters_.results_unheard;
  }
  const bool is_refused = answer == Answer::kRefused && options_.duties.heed_refusals;
  const bool is_delivered = !is_refused && (!is_unheard || options_.confirm_unheard);
  if (is_unheard && !options_.confirm_unheard) {
    nobody_listens_ = true;
    KeepWaitingInStore();
  } else if (answer == Answer::kTaken && IsResult(tag)) {
    nobody_listens_ = false;
  }
  const bool is_right = tag != kOfflineResultTag || MayConfirmOffline(publication);
  if (is_delivered && is_right) {
    confirm_(tag);
  } else if (is_delivered) {
    ++counters_.withheld_acks;
  }
  const auto result = FindInHand(publication);
  if (result != in_hand_.end()) {
    Release(result);
  }
}

// Also ends the record's time under way, before its confirmation begins the next step.
bool DeliveryGuard::MayConfirmOffline(std::uint64_t publication) {
  if (!offline_ || offline_->publication != publication) {
    return true;
  }
  const bool may_confirm = offline_->heads_the_queue || !options_.duties.withhold_offline;
  offline_.reset();
  return may_confirm;
}

const Sent* DeliveryGuard::Unacknowledged(std::uint64_t publication) const {
  const auto found = unacknowledged_.find(publication);
  return found == unacknowledged_.end() ? nullptr : &found->second;
}

void DeliveryGuard::OnLinkUp() { is_link_up_ = true; }

// A result whose publishing step is still to come stays in hand: that step may find
// the link up again.
std::map<std::uint64_t, Sent> DeliveryGuard::OnLinkDown() {
  is_link_up_ = false;
  KeepWaitingInStore();
  std::map<std::uint64_t, Sent> lost;
  if (options_.duties.ignore_stale_acks) {
    lost.swap(unacknowledged_);
    unacknowledged_bytes_ = 0;
    unacknowledged_of_plugin_ = 0;
  }
  offline_.reset();
  in_hand_.erase(
      std::remove_if(in_hand_.begin(), in_hand_.end(),
                     [](const ResultInHand& in_hand) { return in_hand.publication != 0; }),
      in_hand_.end());
  return lost;
}

void DeliveryGuard::OnRequestCarriedOut(const std::string& name, const Json::Value& payload) {
  if (offline_ && EmptiesOfflineQueue(name, payload)) {
    offline_->heads_the_queue = false;
  }
}

bool DeliveryGuard::OwesOneSentBefore(Sent::TimePoint limit) const {
  return std::any_of(unacknowledged_.begin(), unacknowledged_.end(),
                     [limit](const auto& entry) { return entry.second.sent_at < limit; });
}

}  // namespace mqttadapter_host
