#include "cloud_agent/mqtt_link.h"

#include <utility>

#include "cloud_agent/mqtt_link_core.h"

namespace agent {

MqttLink::MqttLink(Options options, std::function<void(std::function<void()>)> post,
                   std::function<std::vector<OutboundMessage>(const InboundRequest&)> turn_away)
    : core_(std::make_shared<MqttLinkCore>(std::move(options), std::move(post),
                                           std::move(turn_away))) {}

MqttLink::~MqttLink() {
  if (thread_.joinable()) {
    MqttLink::Stop({});
  }
}

void MqttLink::Start(LinkListener* listener) {
  core_->SetListener(listener);
  thread_ = std::thread([core = core_] { core->Run(); });
}

Publication MqttLink::Publish(const OutboundMessage& message) { return core_->Publish(message); }

PublishResult MqttLink::Send(const OutboundMessage& message) { return core_->Send(message); }

std::uint64_t MqttLink::TurnedAwayRequests() const { return core_->TurnedAway(); }

void MqttLink::Stop(const OutboundMessage& last) {
  if (!thread_.joinable()) {
    return;
  }
  core_->RequestStop(last);
  if (core_->WaitUntilFinished()) {
    thread_.join();
  } else {
    thread_.detach();
  }
}

}  // namespace agent
