#include "cloud_agent/agent.h"

#include <algorithm>
#include <utility>

#include "json_text.h"
#include "platform/log.h"

namespace agent {
namespace {

constexpr unsigned long long kOfflineResultTag = 16;
constexpr unsigned long long kOfflineCountTag = 17;
using Clock = std::chrono::steady_clock;
constexpr int kFirstFailureCode = 0x80;

// The event thread waits for it, so it is kept short.
constexpr int kStoreTimeout_ms = 300;

Fate FateOf(PublishResult result) {
  switch (result) {
    case PublishResult::kBacklogFull:
      return Fate::kBacklogFull;
    case PublishResult::kRefused:
      return Fate::kNotPublishable;
    default:
      return Fate::kLinkDown;
  }
}

}  // namespace

Agent::Agent(const Options& options, Parts parts)
    : options_(options),
      parts_(std::move(parts)),
      guard_(options.guard, parts_.post, [this](unsigned long long tag) { Confirm(tag); }) {
  if (options_.auto_push) {
    auto_push_ = std::make_unique<AutoPush>(
        [this](int delay_ms, std::function<void()> task) {
          const auto real_ms = static_cast<std::int64_t>(delay_ms / options_.clock_scale);
          parts_.post_after(std::chrono::milliseconds(real_ms), std::move(task));
        },
        [this] { return QueryUndelivered(parts_.bus.get(), kStoreTimeout_ms); },
        [this] { PushEverything(); });
  }
}

Agent::~Agent() = default;

bool Agent::Start() {
  adapter_ = parts_.create_adapter();
  if (adapter_ == nullptr) {
    SYS_LOG(kLogError, "the plug-in made no adapter");
    return false;
  }
  adapter_->SignalPushMessage.connect(this, &Agent::OnPushMessage);
  const int error =
      adapter_->Initialize([this](const std::string& source, const std::string& name) {
        return parts_.pictures->Store(source, name);
      });
  if (error != 0) {
    SYS_LOG(kLogError, "the adapter is not completely initialised (%d); going on without the rest",
            error);
  }
  adapter_->GetMessageNames(requests_, publishes_);
  router_ = std::make_unique<RequestRouter>(
      options_.base, requests_, options_.max_request_bytes,
      [this](const std::string& name, const Json::Value& payload, const std::string& version,
             Json::Value& response) { return RunRequest(name, payload, version, response); });
  for (const std::string& name : publishes_) {
    if (!adapter_->SubscribeMessage(name)) {
      SYS_LOG(kLogWarning, "the adapter does not publish %s: its events could not be subscribed to",
              name.c_str());
    }
  }
  SYS_LOG(kLogInfo, "adapter ready: %zu requests, %zu messages", requests_.size(),
          publishes_.size());
  parts_.link->Start(this);
  ScheduleStatus();
  return true;
}

void Agent::Shutdown() {
  SYS_LOG(kLogInfo, "stopping");
  OutboundMessage goodbye;
  goodbye.topic = options_.base + "/status";
  goodbye.payload = OfflineStatus();
  goodbye.retain = true;
  parts_.link->Stop(goodbye);
  is_link_up_ = false;
  if (auto_push_) {
    auto_push_->OnLinkDown();
  }
  adapter_.reset();
}

void Agent::OnBusMessage(const tarvex::DpMessage& message, std::function<void()> deliver) {
  guard_.OnBusMessage(message.method, std::move(deliver));
}

void Agent::OnPushMessage(const std::string& name, const Json::Value& payload,
                          const std::string& version, unsigned long long tag) {
  try {
    Publish(name, payload, version, tag);
  } catch (const std::exception& failure) {
    SYS_LOG(kLogError, "%s is not published: %s", name.c_str(), failure.what());
  }
}

void Agent::Publish(const std::string& name, const Json::Value& payload, const std::string& version,
                    unsigned long long tag) {
  const std::string description =
      parts_.printer != nullptr ? DescribeMessage(name, payload, tag) : "";
  if (tag == kOfflineResultTag && auto_push_) {
    auto_push_->OnOfflineActivity();
  }
  if (!guard_.MayPublish(tag, payload)) {
    Print(description, Fate::kOfflineBusy);
    return;
  }
  const Publication publication = SendToBroker(name, payload, version, tag);
  if (publication.result == PublishResult::kAccepted) {
    ++counters_.published;
    guard_.OnPublished(publication.id, tag, payload);
    sent_[publication.id] = {tag, description};
    FollowRedelivery(tag);
    return;
  }
  guard_.OnNotPublished(tag);
  const Fate fate = FateOf(publication.result);
  ++(fate == Fate::kLinkDown      ? counters_.dropped_link_down
     : fate == Fate::kBacklogFull ? counters_.dropped_backlog_full
                                  : counters_.dropped_not_publishable);
  Print(description, fate);
}

void Agent::FollowRedelivery(unsigned long long tag) {
  if (parts_.printer == nullptr) {
    return;
  }
  if (tag == kOfflineCountTag) {
    progress_.OnEnded();
  } else if (tag == kOfflineResultTag && progress_.OnPublished(Clock::now())) {
    const auto undelivered = QueryUndelivered(parts_.bus.get(), kStoreTimeout_ms);
    progress_.OnCount(undelivered ? undelivered->count : 0);
  }
}

Publication Agent::SendToBroker(const std::string& name, const Json::Value& payload,
                                const std::string& version, unsigned long long tag) {
  if (!is_link_up_) {
    return {};
  }
  Json::Value body(Json::objectValue);
  body["version"] = version;
  body["tag"] = Json::UInt64{tag};
  body["payload"] = payload;
  OutboundMessage message;
  message.topic = options_.base + "/message/" + name;
  if (!Json::Json2String(body, message.payload)) {
    return {PublishResult::kRefused, 0};
  }
  return parts_.link->Publish(message);
}

void Agent::OnLinkUp() {
  is_link_up_ = true;
  ++counters_.connections;
  if (parts_.printer != nullptr) {
    parts_.printer->PrintEvent("broker connected");
  }
  adapter_->OnMQTTConnected();
  SendStatus();
  if (auto_push_) {
    auto_push_->OnLinkUp();
  }
}

void Agent::OnLinkDown(const std::string& reason) {
  is_link_up_ = false;
  for (const auto& [publication, sent] : sent_) {
    Print(sent.description, Fate::kLinkLost);
  }
  sent_.clear();
  if (parts_.printer != nullptr) {
    parts_.printer->PrintEvent("broker lost: " + reason);
  }
  adapter_->OnMQTTDisconnected();
  guard_.OnLinkDown();
  progress_.OnEnded();
  if (auto_push_) {
    auto_push_->OnLinkDown();
  }
}

void Agent::OnAcknowledged(std::uint64_t publication, int reason_code) {
  const bool is_taken = reason_code < kFirstFailureCode;
  const auto found = sent_.find(publication);
  const bool is_redelivered = found != sent_.end() && found->second.tag == kOfflineResultTag;
  if (found != sent_.end()) {
    ++(is_taken ? counters_.acknowledged : counters_.refused_by_broker);
    Print(found->second.description, is_taken ? Fate::kAcknowledged : Fate::kRefusedByBroker);
    if (is_redelivered && auto_push_) {
      auto_push_->OnOfflineActivity();
    }
    sent_.erase(found);
  }
  guard_.OnAcknowledged(publication, is_taken);
  const auto line = is_redelivered && is_taken ? progress_.OnDelivered(Clock::now()) : std::nullopt;
  if (line && parts_.printer != nullptr) {
    parts_.printer->PrintEvent(*line);
  }
}

void Agent::Confirm(unsigned long long tag) { adapter_->OnMessagePublished(tag); }

void Agent::OnRequest(const InboundRequest& request) {
  for (const OutboundMessage& response : router_->Answer(request)) {
    const PublishResult result = parts_.link->Send(response);
    if (result != PublishResult::kAccepted) {
      SYS_LOG(kLogWarning, "a response is lost: %s", FateText(FateOf(result)));
    }
  }
}

bool Agent::RunRequest(const std::string& name, const Json::Value& payload,
                       const std::string& version, Json::Value& response) {
  const bool is_done = adapter_->RequestMessage(name, payload, version, response);
  if (is_done) {
    guard_.OnRequestCarriedOut(name, payload);
  }
  return is_done;
}

void Agent::PushEverything() {
  SYS_LOG(kLogInfo, "asking for the re-delivery of undelivered results");
  Json::Value response;
  if (!RunRequest("check_offline_record", PushEverythingRequest(), "1.0", response)) {
    SYS_LOG(kLogWarning, "the adapter refused to re-deliver");
  }
}

void Agent::SendStatus() {
  const std::optional<Undelivered> undelivered =
      QueryUndelivered(parts_.bus.get(), kStoreTimeout_ms);
  OutboundMessage message;
  message.topic = options_.base + "/status";
  message.payload = OnlineStatus(requests_, publishes_, Counters(), undelivered);
  message.retain = true;
  parts_.link->Send(message);
  if (undelivered) {
    progress_.OnCount(undelivered->count);
  }
  if (auto_push_) {
    auto_push_->OnTick(undelivered);
  }
}

void Agent::ScheduleStatus() {
  parts_.post_after(std::chrono::seconds(options_.status_interval_s), [this] {
    if (is_link_up_ && adapter_ != nullptr) {
      SendStatus();
    }
    ScheduleStatus();
  });
}

StatusCounters Agent::Counters() const {
  StatusCounters counters = counters_;
  const DeliveryGuard::Counters& guard = guard_.counters();
  counters.dropped_offline_busy = guard.dropped_offline_busy;
  counters.results_waiting = guard_.ResultsWaiting();
  counters.results_overflowed = guard.results_overflowed;
  counters.results_without_publication = guard.results_without_publication;
  counters.ignored_acks = guard.ignored_acks;
  counters.withheld_acks = guard.withheld_acks;
  const std::uint64_t turned_away = parts_.link->TurnedAwayRequests();
  counters.requests = turned_away + (router_ ? router_->Requests() : 0);
  counters.request_errors = turned_away + (router_ ? router_->Errors() : 0);
  return counters;
}

void Agent::Print(const std::string& description, Fate fate) {
  if (parts_.printer != nullptr) {
    parts_.printer->PrintMessage(description, fate);
  }
}

}  // namespace agent
