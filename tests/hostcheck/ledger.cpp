#include "ledger.h"

#include <algorithm>
#include <utility>

#include "checks.h"
#include "wire.h"

namespace hostcheck {
namespace {

/// Whether an event is a call of the host, and not what the plug-in tells beside.
bool IsCall(const std::string& name) {
  return name == "Initialize" || name == "GetMessageNames" || name == "SubscribeMessage" ||
         name == "UnsubscribeMessage" || name == "RequestMessage" || name == "OnMQTTConnected" ||
         name == "OnMQTTDisconnected" || name == "OnMessagePublished" || name == "create_adapter" ||
         name == "destory_adapter";
}

template <class Names>
bool IsOneOf(const Names& names, const std::string& name) {
  return std::find(std::begin(names), std::end(names), name) != std::end(names);
}

bool EmptiesTheQueue(const Json::Value& payload) {
  const Json::Value& body = payload["body"];
  return payload["type"] == "check_offline_record" && body.isObject() &&
         (body["enable"] == "stop" || (body["enable"] == "push" && body["max_count"] == 0));
}

std::string Described(const Json::Value& event) {
  std::string text = event["event"].asString();
  for (const char* key : {"name", "tag", "plate_id"}) {
    if (event.isMember(key)) {
      text += " " + event[key].asString();
    }
  }
  return text;
}

}  // namespace

Ledger::Ledger(std::function<std::string()> now) : now_(std::move(now)) {
  for (const Check& check : kChecks) {
    verdicts_[check.name];
  }
}

void Ledger::Exercised(const char* check) {
  Verdict& verdict = verdicts_.at(check);
  if (verdict.state == State::kNotExercised) {
    verdict = {State::kKept, ""};
  }
}

// The first time says most: what follows may follow from it.
void Ledger::Broken(const char* check, const std::string& what) {
  Verdict& verdict = verdicts_.at(check);
  if (verdict.state != State::kBroken) {
    verdict = {State::kBroken, what + "; at " + now_() + ", after " + latest_};
  }
}

void Ledger::Skipped(const char* check, const std::string& why) {
  Verdict& verdict = verdicts_.at(check);
  if (verdict.state == State::kNotExercised && verdict.moment.empty()) {
    verdict.moment = why;
  }
}

bool Ledger::IsAnyBroken() const {
  return std::any_of(verdicts_.begin(), verdicts_.end(),
                     [](const auto& entry) { return entry.second.state == State::kBroken; });
}

void Ledger::Note(const std::string& what) { latest_ = what; }

int Ledger::Count(const std::string& event) const {
  const auto found = counts_.find(event);
  return found == counts_.end() ? 0 : found->second;
}

std::string Ledger::MarkOf(unsigned long long tag, unsigned plate_id) const {
  std::string mark;
  int latest = 0;
  for (const auto& [candidate, publication] : publications_) {
    const int number = std::stoi(candidate.substr(sizeof(kMarkBegin) - 1));
    if (publication.tag == tag && publication.plate_id == plate_id && number > latest) {
      latest = number;
      mark = candidate;
    }
  }
  return mark;
}

void Ledger::OnEvent(const Json::Value& event) {
  const std::string name = event["event"].asString();
  if (IsCall(name)) {
    JudgeOrderOfCalls(name);
    if (event["is_waiting"].asBool()) {
      Broken(kNotReentered, name + " was called while a bus request kept the thread");
    }
  } else if (Count("destory_adapter") > 0) {
    Broken(kDestroyedLast, "a message was delivered after destory_adapter");
  }
  if (thread_ == 0) {
    thread_ = event["thread"].asInt64();
  } else if (event["thread"].asInt64() != thread_) {
    Broken(kOneThread, Described(event) + " came on another thread than create_adapter");
  }
  ++counts_[name];
  if (name == "result") {
    OnResult(event);
  } else if (name == "publishes") {
    OnPublishes(event);
  } else if (name == "OnMessagePublished") {
    OnConfirmed(event["tag"].asUInt64());
  } else if (name == "RequestMessage") {
    OnRequest(event);
  } else if (name == "OnMQTTConnected" || name == "OnMQTTDisconnected") {
    OnLinkCall(name == "OnMQTTConnected");
  } else if (name == "SubscribeMessage" || name == "UnsubscribeMessage") {
    const std::string message = event["name"].asString();
    if (!IsOneOf(kPublishes, message)) {
      Broken(kSubscribedWithLink, name + " of \"" + message + "\", which was not announced");
    } else if (name == "SubscribeMessage") {
      subscribed_.insert(message);
    } else {
      subscribed_.erase(message);
    }
  } else if (name == "waited") {
    last_wait_ms_ = static_cast<long>(event["ms"].asInt64());
  } else if (name == "platform") {
    const auto* check = std::find_if(std::begin(kChecks), std::end(kChecks),
                                     [&](const Check& row) { return event["check"] == row.name; });
    if (!event["is_exercised"].asBool()) {
      Skipped(check->name, "the platform does not let it be seen");
    } else if (event["broken"].asString().empty()) {
      Exercised(check->name);
    } else {
      Broken(check->name, event["broken"].asString());
    }
  }
  latest_ = Described(event);
}

void Ledger::JudgeOrderOfCalls(const std::string& name) {
  if (Count("destory_adapter") > 0) {
    Broken(kDestroyedLast, name + " after destory_adapter");
  }
  if (name == "create_adapter" && Count(name) > 0) {
    Broken(kCallOrder, "a second create_adapter");
  } else if (name == "Initialize" && Count(name) > 0) {
    Broken(kCallOrder, "a second Initialize");
  } else if (name != "create_adapter" && name != "Initialize" && name != "destory_adapter" &&
             Count("Initialize") == 0) {
    Broken(kCallOrder, name + " before Initialize");
  } else if (name != "create_adapter" && name != "Initialize" && name != "destory_adapter" &&
             name != "GetMessageNames" && Count("GetMessageNames") == 0) {
    Broken(kCallOrder, name + " before GetMessageNames");
  }
}

void Ledger::OnResult(const Json::Value& event) {
  const unsigned plate_id = event["plate_id"].asUInt();
  const std::string what = "result " + std::to_string(plate_id) + " was handed over";
  if (!event["is_listening"].asBool()) {
    Broken(kBusUnlistened, what + " although its topic was left");
  }
  if (has_result_) {
    Broken(kOneAtATime,
           what + " while result " + std::to_string(result_plate_id_) +
               (result_mark_.empty() ? " was not published yet" : " was not acknowledged yet"));
  }
  if (!results_.empty() && plate_id <= results_.back()) {
    Broken(kInOrder, what + " after result " + std::to_string(results_.back()));
  }
  results_.push_back(plate_id);
  has_result_ = !event["is_swallowed"].asBool();
  result_plate_id_ = plate_id;
  result_mark_.clear();
}

void Ledger::OnPublishes(const Json::Value& event) {
  const std::string mark = event["mark"].asString();
  Publication publication;
  publication.tag = event["tag"].asUInt64();
  publication.name = event["name"].asString();
  publication.plate_id = event["plate_id"].asUInt();
  publication.session = session_;
  publication.connection = connection_;
  if (publication.tag == kLiveTag && has_result_ && publication.plate_id == result_plate_id_) {
    result_mark_ = mark;
  }
  if (publication.tag == kRedeliveredTag) {
    Withhold(kOtherWithheld, publication.plate_id);
  }
  if (event.isMember("pictures")) {
    const Json::Value& texts = event["pictures"];
    Exercised(kPictures);
    if (texts.size() != 2) {
      Broken(kPictures, "Initialize was given no image function");
    } else if (texts[0].asString().empty() || texts[1].asString().empty()) {
      Broken(kPictures, "the image function gave no text for a picture that is there");
    } else if (texts[0] == texts[1]) {
      Broken(kPictures, "two pictures with one file name were given the same text, \"" +
                            texts[0].asString() + "\"");
    }
  }
  if (first_mark_.empty()) {
    first_mark_ = mark;
  }
  publications_[mark] = publication;
}

/// A record that is under way may not be confirmed any more.
void Ledger::Withhold(const char* check, unsigned except_plate_id) {
  for (auto& [mark, publication] : publications_) {
    if (publication.tag == kRedeliveredTag && publication.session == session_ &&
        publication.arrivals > 0 && !publication.is_answered &&
        publication.plate_id != except_plate_id && publication.withhold.empty()) {
      publication.withhold = check;
    }
  }
}

void Ledger::OnArrived(const std::string& mark, int connection) {
  const auto found = publications_.find(mark);
  if (found == publications_.end()) {
    return;
  }
  Publication& arrived = found->second;
  const std::string what = arrived.name + " " + std::to_string(arrived.plate_id) + " (tag " +
                           std::to_string(arrived.tag) + ")";
  if (++arrived.arrivals > 1) {
    Broken(kNotSentAgain, what + " was sent to the broker a second time");
  } else if (connection > arrived.connection) {
    Broken(kNotSentAgain, what + " of before the loss of the link was sent after it");
  } else if (arrived.tag == kRedeliveredTag) {
    for (const auto& [other_mark, other] : publications_) {
      if (other_mark != mark && other.tag == kRedeliveredTag && other.session == session_ &&
          other.arrivals > 0 && !other.is_answered) {
        Broken(kSecondDropped, what + " was sent while record " + std::to_string(other.plate_id) +
                                   " was under way");
      }
    }
  }
  latest_ = what + " at the broker";
}

void Ledger::OnAnswered(const std::string& mark, bool is_refused) {
  const auto found = publications_.find(mark);
  if (found == publications_.end()) {
    return;
  }
  found->second.is_answered = true;
  found->second.is_refused = is_refused;
  if (is_refused && mark == result_mark_) {
    has_result_ = false;
  }
  latest_ = std::string("the broker ") + (is_refused ? "refused " : "acknowledged ") +
            found->second.name + " " + std::to_string(found->second.plate_id);
}

/// Of the publications with a tag, the one that a confirmation is best taken for: the
/// acknowledgement does not say which it means.
std::string Ledger::ConfirmedBy(unsigned long long tag) const {
  std::string best;
  int best_fit = 0;
  for (const auto& [mark, publication] : publications_) {
    if (publication.tag != tag || publication.is_confirmed) {
      continue;
    }
    int fit = 1;
    if (publication.session == session_) {
      fit = !publication.is_answered || publication.is_refused ? 2
            : publication.withhold.empty()                     ? 4
                                                               : 3;
    }
    if (fit > best_fit) {
      best_fit = fit;
      best = mark;
    }
  }
  return best;
}

void Ledger::OnConfirmed(unsigned long long tag) {
  const std::string what = "OnMessagePublished(" + std::to_string(tag) + ")";
  const std::string mark = ConfirmedBy(tag);
  if (mark.empty()) {
    Broken(kConfirmedOnce, what + " once more than there were publications");
    return;
  }
  Publication& publication = publications_[mark];
  const std::string which = publication.name + " " + std::to_string(publication.plate_id);
  if (publication.session != session_) {
    Broken(kStale, what + " although " + which + " was published before a loss of the link");
  } else if (!publication.is_answered || publication.is_refused) {
    Broken(kPositiveAnswer, what + " although the broker has " +
                                (publication.is_refused ? "refused " : "not acknowledged ") +
                                which);
  } else if (!publication.withhold.empty()) {
    Broken(publication.withhold.c_str(),
           what + " although the plug-in's queue may begin with another record than " +
               std::to_string(publication.plate_id));
  }
  publication.is_confirmed = true;
  if (mark == result_mark_) {
    has_result_ = false;
  }
}

void Ledger::OnRequest(const Json::Value& event) {
  const std::string name = event["name"].asString();
  const Json::Value& payload = event["payload"];
  Exercised(kRequestArguments);
  if (!IsOneOf(kRequests, name)) {
    Broken(kRequestArguments, "\"" + name + "\" was requested, which was not announced");
  } else if (!payload.isObject() || payload["type"] != name || !payload["body"].isObject()) {
    Broken(kRequestArguments, "the payload of " + name + " is not {\"type\": its name, \"body\"}");
  } else if (event["version"] != "1.0") {
    Broken(kRequestArguments,
           "the version is \"" + event["version"].asString() + "\" instead of \"1.0\"");
  } else if (EmptiesTheQueue(payload)) {
    Withhold(kEmptiedWithheld, 0);
  }
}

void Ledger::OnLinkCall(bool is_connected) {
  if (is_connected == is_connected_) {
    Broken(kConnectionTold, is_connected
                                ? "OnMQTTConnected twice without OnMQTTDisconnected between"
                                : "OnMQTTDisconnected without OnMQTTConnected before");
  }
  is_connected_ = is_connected;
  if (!is_connected) {
    ++session_;
    has_result_ = false;
  }
}

}  // namespace hostcheck
