#include "console/desk/recent_results.h"

#include <utility>

namespace console {

void RecentResults::OnArrived(const std::string& plate, Time_us now_us) {
  OnTime(now_us);
  ++of_second_[static_cast<std::size_t>(second_ % kCounted_s)];
  ++count_;
  plate_ = plate;
  plate_at_us_ = now_us;
}

bool RecentResults::OnTime(Time_us now_us) {
  const std::uint64_t before = count_;
  const std::int64_t now_s = now_us / kSecond_us;
  if (now_s < second_ || now_s - second_ >= kCounted_s) {
    of_second_.fill(0);
    count_ = 0;
    second_ = now_s;
  }
  while (second_ < now_s) {
    ++second_;
    count_ -= std::exchange(of_second_[static_cast<std::size_t>(second_ % kCounted_s)], 0);
  }
  return count_ != before;
}

Json::Value RecentResults::ToJson() const {
  if (plate_at_us_ == 0) {
    return {};
  }
  Json::Value json(Json::objectValue);
  json["per_minute"] = Json::UInt64{count_};
  json["plate"] = plate_;
  json["plate_at_us"] = Json::Int64{plate_at_us_};
  return json;
}

}  // namespace console
