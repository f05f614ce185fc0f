#include "cloud_agent/agent.h"

#include <algorithm>
#include <utility>

#include "cloud_agent/delivery/plugin_protocol.h"
#include "cloud_agent/mqtt/mqtt_connection.h"
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

// Between two lines in the log about messages that the broker refuses.
constexpr std::chrono::minutes kRefusalLogPause{1};

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

Answer AnswerOf(int reason_code) {
  if (reason_code >= kFirstFailureCode) {
    return Answer::kRefused;
  }
  return reason_code == kNoMatchingSubscribers ? Answer::kUnheard : Answer::kTaken;
}

Fate FateOf(Answer answer) {
  switch (answer) {
    case Answer::kRefused:
      return Fate::kRefusedByBroker;
    case Answer::kUnheard:
      return Fate::kUnheard;
    case Answer::kTaken:
      break;
  }
  return Fate::kAcknowledged;
}

}  // namespace

Agent::Agent(const Options& options, Parts parts)
    : options_(options),
      parts_(std::move(parts)),
      guard_(options.guard, parts_.post,
             [this](unsigned long long tag) { adapter_->OnMessagePublished(tag); }),
      auto_push_(
          options.auto_push, &guard_,
          AutoPush::Host{
              [this](int delay_ms, std::function<void()> task) {
                const auto real_ms = static_cast<std::int64_t>(delay_ms / options_.clock_scale);
                parts_.post_after(milliseconds(real_ms), std::move(task));
              },
              parts_.now, [this] { return QueryUndelivered(parts_.bus.get(), kStoreTimeout_ms); },
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

std::string Agent::StorePicture(const std::string& source, const std::string& name) {
  PictureStore::Picture picture = parts_.pictures->Store(source, name);
  if (!picture.name.empty()) {
    new_pictures_.push_back(std::move(picture.name));
  }
  return picture.url;
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
  Sent sent;
  sent.tag = tag;
  sent.description = parts_.screen->Describe(name, payload, tag);
  sent.pictures = std::exchange(new_pictures_, {});
  sent.plate_id = PlateId(payload);
  if (tag == kOfflineResultTag) {
    auto_push_.OnOfflineActivity();
  }
  if (!guard_.MayPublish(tag, payload)) {
    NoteNotPublished(name, sent, Fate::kOfflineBusy);
    return;
  }
  Json::Value body(Json::objectValue);
  body["version"] = version;
  body["tag"] = Json::UInt64{tag};
  body["payload"] = payload;
  const Json::Value request_id = requests_.OnMessage(name, payload);
  if (!request_id.isNull()) {
    body["id"] = request_id;
  }
  OutboundMessage message;
  message.topic = options_.requests.topics.base + "/message/" + name;
  std::optional<Fate> failure = Fate::kNotPublishable;
  if (Json::Json2String(body, message.payload)) {
    failure = SendToBroker(message, sent);
  }
  if (failure) {
    guard_.OnNotPublished(tag);
    NoteNotPublished(name, sent, *failure);
    return;
  }
  ++counters_.published;
  if (parts_.screen->OnPublished(tag, parts_.now())) {
    const auto undelivered = QueryUndelivered(parts_.bus.get(), kStoreTimeout_ms);
    parts_.screen->ShowUndelivered(undelivered ? undelivered->count : 0);
  }
}

std::optional<Fate> Agent::SendToBroker(const OutboundMessage& message, Sent sent) {
  sent.topic = message.topic;
  sent.bytes = message.topic.size() + message.payload.size();
  sent.sent_at = parts_.now();
  if (!is_link_up_) {
    return Fate::kLinkDown;
  }
  if (!guard_.HasRoom(sent.tag, sent.bytes)) {
    return Fate::kBacklogFull;
  }
  const Publication publication = parts_.link->Publish(message);
  switch (publication.result) {
    case PublishResult::kLinkDown:
      return Fate::kLinkDown;
    case PublishResult::kRefused:
      return Fate::kNotPublishable;
    case PublishResult::kAccepted:
      break;
  }
  if (parts_.trace != nullptr) {
    parts_.trace->Published(publication.id, sent);
  }
  guard_.OnPublished(publication.id, std::move(sent));
  return std::nullopt;
}

void Agent::NoteNotPublished(const std::string& name, const Sent& sent, Fate fate) {
  if (parts_.trace != nullptr) {
    parts_.trace->NotPublished(name, sent, FateText(fate));
  }
  NoteAnswer(sent, fate);
}

// What becomes of a message of the plug-in. Pictures of a result that the cloud surely does
// not have are not needed: its re-delivery makes new ones.
void Agent::NoteAnswer(const Sent& sent, Fate fate) {
  parts_.screen->ShowFate(sent.description, fate);
  switch (fate) {
    case Fate::kAcknowledged:
      ++counters_.acknowledged;
      return;
    case Fate::kLinkLost:
      return;
    case Fate::kUnheard:
      ++counters_.acknowledged;
      if (options_.guard.confirm_unheard) {
        return;
      }
      break;
    case Fate::kRefusedByBroker:
      ++counters_.refused_by_broker;
      break;
    case Fate::kLinkDown:
      ++counters_.dropped_link_down;
      break;
    case Fate::kBacklogFull:
      ++counters_.dropped_backlog_full;
      break;
    case Fate::kNotPublishable:
      ++counters_.dropped_not_publishable;
      break;
    case Fate::kOfflineBusy:
      break;  // the guard counts it
  }
  if (IsResult(sent.tag)) {
    for (const std::string& picture : sent.pictures) {
      parts_.pictures->Remove(picture);
    }
  }
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
  for (const std::string& name : publishes_) {
    adapter_->UnsubscribeMessage(name);
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

void Agent::OnAcknowledged(std::uint64_t publication, int reason_code) {
  Settle(publication, reason_code);
  requests_.OnRoom();
}

void Agent::Settle(std::uint64_t publication, int reason_code) {
  const bool nobody_listened = guard_.NobodyListens();
  const Answer answer = AnswerOf(reason_code);
  if (parts_.trace != nullptr) {
    // Before the plug-in hears of it, and has the camera mark the result as delivered.
    parts_.trace->Acknowledged(publication, guard_.Unacknowledged(publication), answer);
  }
  const std::optional<Sent> sent = guard_.OnAcknowledged(publication, answer);
  if (!sent) {
    return;
  }
  if (answer == Answer::kRefused) {
    LogRefusal("to publish " + sent->topic, reason_code, &publication_refusal_logged_at_);
  }
  if (sent->tag != 0) {
    NoteAnswer(*sent, FateOf(answer));
  }
  if (answer == Answer::kTaken) {
    parts_.screen->OnDelivered(sent->tag, parts_.now());
  }
  if (sent->tag == kOfflineResultTag) {
    auto_push_.OnOfflineActivity();
  }
  if (guard_.NobodyListens() != nobody_listened) {
    SYS_LOG(kLogWarning, "%s",
            nobody_listened ? "somebody listens to results again"
                            : "nobody listens to results: they stay in the camera's store");
  }
}

void Agent::LogRefusal(const std::string& what, int reason_code,
                       std::optional<TimePoint>* logged_at) {
  const TimePoint now = parts_.now();
  if (*logged_at && now - **logged_at < kRefusalLogPause) {
    return;
  }
  *logged_at = now;
  SYS_LOG(kLogError, "the broker refuses %s: %s; look at what it allows this user",
          what.substr(0, 200).c_str(), ReasonText(reason_code).c_str());
}

bool Agent::SendResponse(const OutboundMessage& message) {
  const std::optional<Fate> failure = SendToBroker(message, {});
  if (!failure && parts_.trace != nullptr) {
    parts_.trace->Responded(message);
  }
  if (failure) {
    SYS_LOG(kLogWarning, "a response is lost: %s", FateText(*failure));
  }
  return failure != Fate::kNotPublishable;
}

bool Agent::RunRequest(const std::string& name, const Json::Value& payload,
                       const std::string& version, Json::Value& response) {
  const bool is_done = adapter_->RequestMessage(name, payload, version, response);
  if (is_done) {
    guard_.OnRequestCarriedOut(name, payload);
  }
  return is_done;
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

void Agent::SendStatus() {
  const std::optional<Undelivered> undelivered =
      QueryUndelivered(parts_.bus.get(), kStoreTimeout_ms);
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
