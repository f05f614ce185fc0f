#include "console/desk/outage_ledger.h"

#include <algorithm>

namespace console {
namespace {

// What is marked as delivered is on its way from the broker for no longer than this.
constexpr Time_us kOnItsWay_us = 5 * kSecond_us;
// After a re-connection the first results come within this.
constexpr Time_us kSettle_us = 3 * kSecond_us;
constexpr std::size_t kMaxResults = 200000;

std::string Results(int count) {
  return std::to_string(count) + (count == 1 ? " result" : " results");
}

}  // namespace

void OutageLedger::OnTrouble(bool is_trouble, Time_us now_us) {
  if (is_trouble && !is_running_) {
    is_running_ = true;
    began_us_ = now_us;
    results_.clear();
    removed_at_begin_ = removed_;
  }
  if (is_trouble_ && !is_trouble) {
    whole_since_us_ = now_us;
  }
  is_trouble_ = is_trouble;
}

OutageLedger::Result& OutageLedger::Of(const std::string& sn, std::uint32_t plate_id) {
  if (results_.size() >= kMaxResults) {
    results_.erase(results_.begin());
  }
  return results_[{sn, plate_id}];
}

void OutageLedger::OnStored(const std::string& sn, std::uint32_t plate_id) {
  if (is_running_) {
    Of(sn, plate_id).is_stored = true;
  }
}

void OutageLedger::OnMarkedAsDelivered(const std::string& sn, std::uint32_t plate_id,
                                       Time_us now_us) {
  if (is_running_) {
    Of(sn, plate_id).marked_at_us = now_us;
  }
}

void OutageLedger::OnArrived(const std::string& sn, std::uint32_t plate_id) {
  if (is_running_) {
    ++Of(sn, plate_id).copies;
  }
}

void OutageLedger::OnRemoved(const std::string& sn, std::int64_t removed) {
  removed_.try_emplace(sn, removed);
  removed_at_begin_.try_emplace(sn, removed);
  removed_[sn] = removed;
}

std::optional<std::string> OutageLedger::OnTime(Time_us now_us) {
  if (!is_running_ || is_trouble_ || now_us - whole_since_us_ < kSettle_us) {
    return std::nullopt;
  }
  const Sums sums = Count(now_us);
  if (sums.left > 0) {
    return std::nullopt;
  }
  is_running_ = false;
  ended_us_ = now_us;
  return Line(sums);
}

OutageLedger::Sums OutageLedger::Count(Time_us now_us) const {
  Sums sums;
  for (const auto& [key, result] : results_) {
    sums.twice += result.copies > 1 ? 1 : 0;
    if (!result.is_stored) {
      continue;
    }
    ++sums.stored;
    if (result.copies > 0) {
      ++sums.arrived;
    } else if (result.marked_at_us && now_us - *result.marked_at_us > kOnItsWay_us) {
      ++sums.lost;
    } else {
      ++sums.left;
    }
  }
  for (const auto& [sn, removed] : removed_) {
    const int gone = static_cast<int>(removed - removed_at_begin_.at(sn));
    sums.lost += gone;
    sums.left = std::max(0, sums.left - gone);
  }
  return sums;
}

std::string OutageLedger::Line(const Sums& sums) const {
  std::string line = is_running_ ? "Until now: " : "The outage is over: ";
  line += Results(sums.stored) + " stored, " + std::to_string(sums.arrived) + " arrived, ";
  if (sums.left > 0) {
    line += std::to_string(sums.left) + " still in the store, ";
  }
  line += sums.lost == 0 ? "nothing was lost, " : std::to_string(sums.lost) + " lost, ";
  line += sums.twice == 0 ? "nothing came twice." : Results(sums.twice) + " came twice.";
  return line;
}

Json::Value OutageLedger::ToJson(Time_us now_us) const {
  if (!began_us_) {
    return {};
  }
  const Sums sums = Count(is_running_ ? now_us : ended_us_);
  Json::Value json(Json::objectValue);
  json["running"] = is_running_;
  json["began_us"] = Json::Int64{*began_us_};
  if (!is_running_) {
    json["ended_us"] = Json::Int64{ended_us_};
  }
  json["stored"] = sums.stored;
  json["arrived"] = sums.arrived;
  json["left"] = sums.left;
  json["lost"] = sums.lost;
  json["twice"] = sums.twice;
  json["line"] = Line(sums);
  return json;
}

}  // namespace console
