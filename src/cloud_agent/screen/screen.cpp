#include "cloud_agent/screen/screen.h"

#include "cloud_agent/delivery/host_duties.h"
#include "tarvex/time_util.h"

namespace agent {

std::string Screen::Describe(const std::string& name, const Json::Value& payload,
                             unsigned long long tag) const {
  return out_ != nullptr ? DescribeMessage(name, payload, tag) : "";
}

void Screen::ShowFate(const std::string& description, Fate fate) {
  if (out_ != nullptr) {
    ShowEvent(description + ": " + FateText(fate));
  }
}

void Screen::ShowEvent(const std::string& text) {
  if (out_ != nullptr) {
    *out_ << tarvex::XTimeUtil::TimeLocalToString(tarvex::XTimeUtil::TimeSecond()) << ' ' << text
          << std::endl;
  }
}

bool Screen::OnPublished(unsigned long long tag, TimePoint now) {
  if (out_ == nullptr) {
    return false;
  }
  if (tag == kOfflineCountTag) {
    progress_.OnEnded();
  }
  return tag == kOfflineResultTag && progress_.OnPublished(now);
}

void Screen::ShowUndelivered(std::int64_t count) { progress_.OnCount(count); }

void Screen::OnDelivered(unsigned long long tag, TimePoint now) {
  if (out_ == nullptr || tag != kOfflineResultTag) {
    return;
  }
  if (const auto line = progress_.OnDelivered(now)) {
    ShowEvent(*line);
  }
}

void Screen::OnLinkDown() { progress_.OnEnded(); }

}  // namespace agent
