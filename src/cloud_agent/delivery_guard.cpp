#include "cloud_agent/delivery_guard.h"

#include <algorithm>
#include <utility>

#include "platform/json_member.h"

namespace agent {
namespace {

using tarvex::Member;

constexpr char kResultTopic[] = "BUS_SRV_IVS_RESULT";
constexpr unsigned long long kLiveResultTag = 11;
constexpr unsigned long long kOfflineResultTag = 16;

// With the second duty switched off nothing else would end this list's growth.
constexpr std::size_t kMaxUnacknowledged = 4096;

std::optional<Json::UInt> PlateId(const Json::Value& payload) {
  const Json::Value& plate =
      Member(Member(Member(payload, "AlarmInfoPlate"), "result"), "PlateResult");
  const Json::Value& plate_id = Member(plate, "plateid");
  if (!plate_id.isUInt()) {
    return std::nullopt;
  }
  return plate_id.asUInt();
}

// Both ways in which the cloud makes the plug-in forget the records it has fetched.
bool EmptiesOfflineQueue(const std::string& request_name, const Json::Value& payload) {
  if (request_name != "check_offline_record") {
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
  if (result != in_hand_.end() && result->publication == 0) {
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

bool DeliveryGuard::MayPublish(unsigned long long tag, const Json::Value& payload) {
  if (tag != kOfflineResultTag || !options_.duties.one_offline || !offline_) {
    return true;
  }
  // What the plug-in wants to publish is what its queue begins with now.
  const std::optional<Json::UInt> plate_id = PlateId(payload);
  offline_->heads_the_queue = plate_id && plate_id == offline_->plate_id;
  ++counters_.dropped_offline_busy;
  return false;
}

void DeliveryGuard::OnPublished(std::uint64_t publication, unsigned long long tag,
                                const Json::Value& payload) {
  if (unacknowledged_.size() >= kMaxUnacknowledged) {
    unacknowledged_.erase(unacknowledged_.begin());
  }
  unacknowledged_[publication] = tag;
  if (tag == kOfflineResultTag) {
    offline_ = OfflineInFlight{publication, PlateId(payload), true};
  } else if (tag == kLiveResultTag) {
    const auto result =
        std::find_if(in_hand_.begin(), in_hand_.end(),
                     [](const ResultInHand& in_hand) { return in_hand.publication == 0; });
    if (result != in_hand_.end()) {
      result->publication = publication;
    }
  }
}

void DeliveryGuard::OnNotPublished(unsigned long long tag) {
  if (tag != kLiveResultTag) {
    return;
  }
  const auto result =
      std::find_if(in_hand_.begin(), in_hand_.end(),
                   [](const ResultInHand& in_hand) { return in_hand.publication == 0; });
  if (result != in_hand_.end()) {
    Release(result);
  }
}

void DeliveryGuard::OnAcknowledged(std::uint64_t publication, bool taken) {
  const auto found = unacknowledged_.find(publication);
  if (found == unacknowledged_.end()) {
    ++counters_.ignored_acks;
    return;
  }
  const unsigned long long tag = found->second;
  unacknowledged_.erase(found);

  const bool is_right = tag != kOfflineResultTag || MayConfirmOffline(publication);
  if (taken && is_right) {
    confirm_(tag);
  } else if (taken) {
    ++counters_.withheld_acks;
  }
  const auto result = std::find_if(
      in_hand_.begin(), in_hand_.end(),
      [publication](const ResultInHand& in_hand) { return in_hand.publication == publication; });
  if (result != in_hand_.end()) {
    Release(result);
  }
}

// Also ends the record's time under way, before its confirmation begins the next step.
bool DeliveryGuard::MayConfirmOffline(std::uint64_t publication) {
  if (!options_.duties.one_offline || !offline_ || offline_->publication != publication) {
    return true;
  }
  const bool may_confirm = offline_->heads_the_queue;
  offline_.reset();
  return may_confirm;
}

// A result whose publishing step is still to come stays in hand: that step may find
// the link up again.
void DeliveryGuard::OnLinkDown() {
  if (options_.duties.ignore_stale_acks) {
    unacknowledged_.clear();
  }
  offline_.reset();
  in_hand_.erase(
      std::remove_if(in_hand_.begin(), in_hand_.end(),
                     [](const ResultInHand& in_hand) { return in_hand.publication != 0; }),
      in_hand_.end());
  post_([this] { HandOverWaiting(); });
}

void DeliveryGuard::OnRequestCarriedOut(const std::string& name, const Json::Value& payload) {
  if (offline_ && EmptiesOfflineQueue(name, payload)) {
    offline_->heads_the_queue = false;
  }
}

}  // namespace agent
