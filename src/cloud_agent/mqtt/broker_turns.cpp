#include "cloud_agent/mqtt/broker_turns.h"

namespace agent {
namespace {

constexpr int kDoubtsThatSettle = 2;
constexpr char kFromNowOn[] = "from now on it gets MQTT 3.1.1";

}  // namespace

BrokerTurns::BrokerTurns(const std::vector<BrokerAddress>& addresses,
                         std::optional<MqttVersion> version)
    : is_version_found_out_(!version.has_value()) {
  for (const BrokerAddress& address : addresses) {
    brokers_.push_back({address, version.value_or(MqttVersion::k5), false, 0});
  }
}

BrokerTurns::Attempt BrokerTurns::Present() const {
  return {brokers_[present_].address, brokers_[present_].version};
}

BrokerTurns::Next BrokerTurns::OnEnd(VersionFinding finding, bool worked) {
  Next next;
  if (Learn(finding, &brokers_[present_], &next.text)) {
    next.is_at_once = true;
    return next;
  }
  ++tried_;
  if (worked || tried_ == brokers_.size()) {
    first_ = worked ? present_ : first_;
    present_ = first_;
    tried_ = 0;
    return next;
  }
  present_ = (present_ + 1) % brokers_.size();
  next.is_at_once = true;
  next.text += (next.text.empty() ? "trying " : "; trying ") + brokers_[present_].address.Text();
  return next;
}

bool BrokerTurns::Learn(VersionFinding finding, Broker* broker, std::string* text) const {
  if (!is_version_found_out_) {
    *text = finding == VersionFinding::kRefused ? "leave the version to --mqtt-version auto" : "";
    return false;
  }
  if (broker->version == MqttVersion::k5) {
    return LearnFrom5(finding, broker, text);
  }
  const bool is_spoken = finding == VersionFinding::kSpoken;
  if (!broker->is_settled && is_spoken && ++broker->doubts == kDoubtsThatSettle) {
    broker->is_settled = true;
    *text = kFromNowOn;
  } else if (!broker->is_settled || finding == VersionFinding::kRefused) {
    broker->version = MqttVersion::k5;
    broker->is_settled = false;
  }
  return false;
}

bool BrokerTurns::LearnFrom5(VersionFinding finding, Broker* broker, std::string* text) {
  switch (finding) {
    case VersionFinding::kNothing:
      return false;
    case VersionFinding::kSpoken:
      broker->is_settled = true;
      return false;
    case VersionFinding::kDoubted:
      if (broker->is_settled) {
        return false;
      }
      *text = "trying MQTT 3.1.1";
      break;
    case VersionFinding::kRefused:
      broker->is_settled = true;
      *text = kFromNowOn;
      break;
  }
  broker->version = MqttVersion::k311;
  return true;
}

}  // namespace agent
