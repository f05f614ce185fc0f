#include "console/desk/redelivery.h"

namespace console {
namespace {

// The plug-in's next record follows within five seconds.
constexpr Time_us kQuiet_us = 6 * kSecond_us;

}  // namespace

void Redelivery::OnPublished(Time_us now_us) {
  if (!is_running_) {
    is_running_ = true;
    has_begun_ = true;
    done_ = 0;
  }
  latest_us_ = now_us;
}

void Redelivery::OnAcknowledged(Time_us now_us) {
  if (++done_ == 1) {
    first_done_us_ = now_us;
  }
  latest_done_us_ = now_us;
  latest_us_ = now_us;
}

bool Redelivery::OnTime(std::optional<std::int64_t> left, Time_us now_us) {
  if (!is_running_) {
    return false;
  }
  left_ = left;
  const bool is_done = left == 0 && done_ > 0;
  if (is_done || now_us - latest_us_ > kQuiet_us) {
    is_running_ = false;
  }
  return true;
}

Json::Value Redelivery::ToJson() const {
  if (!has_begun_) {
    return {};
  }
  // The second of two shows how long one takes.
  const double seconds = static_cast<double>(latest_done_us_ - first_done_us_) / kSecond_us;
  const double per_second = done_ > 1 && seconds > 0 ? static_cast<double>(done_ - 1) / seconds : 0;
  Json::Value json(Json::objectValue);
  json["running"] = is_running_;
  json["done"] = Json::Int64{done_};
  json["left"] = left_ ? Json::Value(Json::Int64{*left_}) : Json::Value();
  json["per_second"] = per_second;
  json["to_go_s"] = left_ && per_second > 0 ? Json::Value(static_cast<double>(*left_) / per_second)
                                            : Json::Value();
  return json;
}

}  // namespace console
