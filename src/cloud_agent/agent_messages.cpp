// The messages of the plug-in on their way to the broker, and what becomes of them.
#include <utility>

#include "cloud_agent/agent.h"
#include "cloud_agent/delivery/host_duties.h"
#include "cloud_agent/mqtt/mqtt_reasons.h"
#include "json_text.h"
#include "platform/log.h"

namespace agent {
namespace {

// Between two lines in the log about messages that the broker refuses.
constexpr std::chrono::minutes kRefusalLogPause{1};

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

/// A message's text, its members in the order of their names. Put together here, so that the
/// payload is not copied.
bool WriteBody(const Json::Value& id, const Json::Value& payload, const std::string& version,
               unsigned long long tag, std::string* text) {
  std::string part;
  *text = "{";
  if (!id.isNull()) {
    if (!Json::Json2String(id, part)) {
      return false;
    }
    text->append(R"("id":)").append(part).append(",");
  }
  if (!Json::Json2String(payload, part)) {
    return false;
  }
  text->reserve(text->size() + part.size() + version.size() + 64);
  text->append(R"("payload":)").append(part);
  text->append(R"(,"tag":)").append(std::to_string(tag));
  if (!Json::Json2String(version, part)) {
    return false;
  }
  text->append(R"(,"version":)").append(part).append("}");
  return true;
}

}  // namespace

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
  OutboundMessage message;
  message.topic = options_.requests.topics.base + "/message/" + name;
  std::optional<Fate> failure = Fate::kNotPublishable;
  if (WriteBody(requests_.OnMessage(name, payload), payload, version, tag, &message.payload)) {
    failure = SendToBroker(message, sent);
  }
  if (failure) {
    guard_.OnNotPublished(tag);
    NoteNotPublished(name, sent, *failure);
    return;
  }
  ++counters_.published;
  if (parts_.screen->OnPublished(tag, parts_.now())) {
    const auto undelivered = AskForUndelivered();
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
  const auto sent = guard_.OnAcknowledged(publication, answer);
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

}  // namespace agent
