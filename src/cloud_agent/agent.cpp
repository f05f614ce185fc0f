#include "cloud_agent/agent.h"

#include <utility>

#include "cloud_agent/delivery/host_duties.h"
#include "json_text.h"
#include "platform/database_states.h"
#include "platform/log.h"

namespace agent {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;

// The event thread waits for it, so it is kept short.
constexpr int kStoreTimeout_ms = 300;

constexpr seconds kAckLook{1};

// A request is begun when so much may be sent for it: its answer, in a message and in
// the response.
constexpr unsigned long long kAnswerTag = 1;
constexpr std::size_t kRoomForAnswer_bytes = std::size_t{64} << 10;

Json::Value PushRequest(int max_count) {
  Json::Value payload(Json::objectValue);
  payload["type"] = kOfflineRequest;
  payload["body"]["enable"] = "push";
  payload["body"]["max_count"] = max_count;
  payload["body"]["min_id"] = 0;
  return payload;
}

}  // namespace

Agent::Agent(const Options& options, Parts parts)
    : options_(options),
      parts_(std::move(parts)),
      guard_(options.guard, parts_.post, [this](unsigned long long tag) { Confirm(tag); }),
      auto_push_(options.auto_push, &guard_,
                 AutoPush::Host{[this](int delay_ms, std::function<void()> task) {
                                  const auto real_ms =
                                      static_cast<std::int64_t>(delay_ms / options_.clock_scale);
                                  parts_.post_after(milliseconds(real_ms), std::move(task));
                                },
                                parts_.now, [this] { return AskForUndelivered(); },
                                [this](int max_count) { Push(max_count); }}),
      requests_(options.requests, parts_.requests,
                RequestRunner::Host{
                    parts_.now, [this] { return guard_.HasRoom(kAnswerTag, kRoomForAnswer_bytes); },
                    [this](const Request& request, Json::Value& response) {
                      return RunRequest(request.name, request.payload, request.version, response);
                    },
                    [this](const OutboundMessage& message) { return SendResponse(message); },
                    parts_.trace}) {}

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
        return StorePicture(source, name);
      });
  if (error != 0) {
    SYS_LOG(kLogError, "the adapter is not completely initialised (%d); going on without the rest",
            error);
  }
  adapter_->GetMessageNames(request_names_, publishes_);
  SYS_LOG(kLogInfo, "adapter ready: %zu requests, %zu messages", request_names_.size(),
          publishes_.size());
  requests_.SetNames(request_names_);
  parts_.requests->Open([this] {
    if (adapter_ != nullptr) {
      requests_.RunNext();
    }
  });
  parts_.link->Start(this);
  Repeat(seconds(options_.status_interval_s), &Agent::SendStatus);
  Repeat(kAckLook, &Agent::LeaveBrokerThatOwes);
  Repeat(AutoPush::kLook, &Agent::LookForWork);
  return true;
}

bool Agent::Shutdown() {
  SYS_LOG(kLogInfo, "stopping");
  OutboundMessage last;
  last.topic = options_.requests.topics.base + "/status";
  last.payload = OfflineStatus();
  last.retain = true;
  const bool is_stopped = parts_.link->Stop(last);
  is_link_up_ = false;
  auto_push_.OnLinkDown();
  adapter_.reset();
  return is_stopped;
}

void Agent::Repeat(seconds interval, void (Agent::*task)()) {
  parts_.post_after(interval, [this, interval, task] {
    if (adapter_ != nullptr) {
      if (is_link_up_) {
        (this->*task)();
      }
      Repeat(interval, task);
    }
  });
}

void Agent::OnBusMessage(const tarvex::DpMessage& message, std::function<void()> deliver) {
  if (parts_.trace != nullptr) {
    deliver = parts_.trace->HandingOver(message, std::move(deliver));
  }
  guard_.OnBusMessage(message.method, std::move(deliver));
}

void Agent::OnBusRequest(const tarvex::BusRequest& request) {
  if (parts_.trace != nullptr) {
    parts_.trace->BusRequest(request);
  }
  health_.OnBusRequest(request, parts_.now());
  requests_.OnBusRequest(request);
}

void Agent::OnLinkUp(int subscription_code) {
  is_link_up_ = true;
  ++counters_.connections;
  if (subscription_code >= kFirstFailureCode) {
    ++counters_.subscriptions_refused;
    LogRefusal("the subscription to " + options_.requests.topics.base + "/request/#",
               subscription_code, &subscription_refusal_logged_at_);
  }
  if (parts_.trace != nullptr) {
    parts_.trace->LinkUp();
  }
  parts_.screen->ShowEvent("broker connected");
  adapter_->OnMQTTConnected();
  guard_.OnLinkUp();
  SendStatus();
  not_subscribed_ = publishes_;
  SubscribeMissing();
  for (const std::string& name : not_subscribed_) {
    SYS_LOG(kLogWarning, "%s cannot be subscribed to at the adapter; trying again", name.c_str());
  }
  auto_push_.OnLinkUp();
}

void Agent::OnLinkDown(const std::string& reason) {
  is_link_up_ = false;
  if (parts_.trace != nullptr) {
    parts_.trace->LinkDown(reason);
  }
  if (options_.guard.duties.unsubscribe_on_loss) {
    for (const std::string& name : publishes_) {
      adapter_->UnsubscribeMessage(name);
    }
  }
  not_subscribed_.clear();
  adapter_->OnMQTTDisconnected();
  for (const auto& [publication, sent] : guard_.OnLinkDown()) {
    if (sent.tag == 0) {
      continue;
    }
    if (parts_.trace != nullptr) {
      parts_.trace->Unconfirmed(publication, sent);
    }
    NoteAnswer(sent, Fate::kLinkLost);
  }
  parts_.screen->ShowEvent("broker lost: " + reason);
  parts_.screen->OnLinkDown();
  auto_push_.OnLinkDown();
  requests_.OnRoom();
}

void Agent::SubscribeMissing() {
  const std::set<std::string> names = std::exchange(not_subscribed_, {});
  for (const std::string& name : names) {
    if (!adapter_->SubscribeMessage(name)) {
      not_subscribed_.insert(name);
    }
  }
}

bool Agent::RunRequest(const std::string& name, const Json::Value& payload,
                       const std::string& version, Json::Value& response) {
  if (parts_.trace != nullptr) {
    parts_.trace->HandingOverRequest(name, payload, version);
  }
  const bool is_done = adapter_->RequestMessage(name, payload, version, response);
  if (is_done) {
    guard_.OnRequestCarriedOut(name, payload);
  }
  return is_done;
}

void Agent::Confirm(unsigned long long tag) {
  if (parts_.trace != nullptr) {
    parts_.trace->Confirming(tag);
  }
  adapter_->OnMessagePublished(tag);
}

void Agent::Push(int max_count) {
  SYS_LOG(kLogInfo, "asking for the re-delivery of undelivered results, %d at most", max_count);
  Json::Value response;
  if (!RunRequest(kOfflineRequest, PushRequest(max_count), "1.0", response)) {
    SYS_LOG(kLogWarning, "the adapter refused to re-deliver");
  }
}

void Agent::LookForWork() {
  SubscribeMissing();
  auto_push_.Look();
}

std::optional<Undelivered> Agent::AskForUndelivered() const {
  return QueryUndelivered(parts_.bus.get(), kStoreTimeout_ms);
}

void Agent::SendStatus() {
  const std::optional<Undelivered> undelivered = AskForUndelivered();
  OutboundMessage message;
  message.topic = options_.requests.topics.base + "/status";
  message.payload = OnlineStatus(PresentStatus(undelivered));
  message.retain = true;
  SendToBroker(message, {});
  if (undelivered) {
    parts_.screen->ShowUndelivered(undelivered->count);
  }
}

Status Agent::PresentStatus(const std::optional<Undelivered>& undelivered) const {
  const std::map<std::string, bool> databases = tarvex::DatabaseStates();
  Status status;
  status.requests = request_names_;
  status.publishes = publishes_;
  status.counters = Counters();
  status.undelivered = undelivered;
  status.is_device_there = health_.IsDeviceThere(databases);
  status.health = health_.ToJson(databases, parts_.now());
  status.versions = options_.versions;
  status.started_at = std::chrono::duration_cast<seconds>(started_at_.time_since_epoch()).count();
  status.last_error = tarvex::LatestError();
  return status;
}

void Agent::LeaveBrokerThatOwes() {
  if (guard_.OwesOneSentBefore(parts_.now() - seconds(options_.ack_timeout_s))) {
    parts_.link->Drop("no acknowledgement of a message in " +
                      std::to_string(options_.ack_timeout_s) + " s");
  }
}

StatusCounters Agent::Counters() const {
  StatusCounters counters = counters_;
  counters.delivery = guard_.counters();
  counters.results_waiting = guard_.ResultsWaiting();
  counters.pictures_failed = parts_.pictures->failed();
  const std::uint64_t turned_away = parts_.requests->turned_away();
  counters.requests = requests_.requests() + turned_away;
  counters.request_errors = requests_.errors() + turned_away;
  return counters;
}

}  // namespace agent
