#include "console/passports/passport_book.h"

#include <algorithm>
#include <optional>

#include "console/passports/record.h"
#include "json_text.h"
#include "platform/json_member.h"
#include "tarvex/base64.h"

namespace console {
namespace {

using tarvex::Member;

constexpr Time_us kSecond_us = 1000000;
// The ways of the three sources differ by no more than this.
constexpr Time_us kClaimWithin_us = kSecond_us;
constexpr Time_us kAnswerWithin_us = 15 * kSecond_us;
constexpr std::size_t kMaxUnclaimed = 256;
constexpr std::size_t kMaxExpected = 64;
constexpr std::size_t kMaxCopies = 4;
constexpr std::size_t kMaxBusRequests = 16;
constexpr int kRedeliveryTag = 16;
constexpr char kResultTopic[] = "BUS_SRV_IVS_RESULT";
constexpr char kStoredTopic[] = "STP_SELECT_MQTT_OFFLINE_RECORD";

/// What a bus topic is on the page, and the name under which the plug-in publishes it.
struct Kind {
  const char* topic;
  const char* kind;
  const char* name;
};
constexpr Kind kKinds[] = {
    {kResultTopic, "result", "ivs_result"},
    {"BUS_SRV_LANECTRL_RESULT", "lane", "lanectrl_result"},
    {"EVT_SRV_EXTERNAL_TRIGGER", "input", "gpio_in"},
    {"EVS_RS485_READ", "serial", "serial_data"},
    {"SS_DEV_NAME_CHANGED", "identity", "SS_DEV_NAME_CHANGED"},
    {"SYS_SRV_IP_CHANGED", "identity", "SYS_SRV_IP_CHANGED"},
};

const Kind* KindOfTopic(const std::string& topic) {
  const auto* found = std::find_if(std::begin(kKinds), std::end(kKinds),
                                   [&topic](const Kind& kind) { return kind.topic == topic; });
  return found == std::end(kKinds) ? nullptr : found;
}

const Kind* KindOfName(const std::string& name) {
  const auto* found = std::find_if(std::begin(kKinds), std::end(kKinds),
                                   [&name](const Kind& kind) { return kind.name == name; });
  return found == std::end(kKinds) ? nullptr : found;
}

/// How far a result has come. What is told late does not take it back.
int RankOf(const std::string& state) {
  constexpr const char* kStates[] = {"",          "stored",       "announced",
                                     "in_store",  "refused",      "handed_over",
                                     "published", "acknowledged", "delivered"};
  for (int rank = 0; rank < static_cast<int>(std::size(kStates)); ++rank) {
    if (state == kStates[rank]) {
      return rank;
    }
  }
  return 0;
}

void Advance(Passport* passport, const char* state) {
  if (RankOf(state) > RankOf(passport->state)) {
    passport->state = state;
  }
}

/// It stays in the camera's store, or goes back there.
void FallBack(Passport* passport, const char* state) {
  if (passport->state != "delivered") {
    passport->state = state;
  }
}

std::string Text(const Json::Value& event, const char* member) {
  const Json::Value& value = Member(event, member);
  return value.isString() ? value.asString() : "";
}

std::int64_t Number(const Json::Value& event, const char* member) {
  const Json::Value& value = Member(event, member);
  return value.isInt64() ? value.asInt64() : 0;
}

std::optional<std::uint32_t> PlateId(const Json::Value& event) {
  const Json::Value& value = Member(event, "plate_id");
  return value.isUInt() ? std::optional(value.asUInt()) : std::nullopt;
}

std::string Bytes(const Json::Value& event, const char* member) {
  const std::string text = Text(event, member);
  std::string bytes;
  tarvex::Base64::DecodeFromArray(text.data(), text.size(),
                                  tarvex::Base64::kParseStrict | tarvex::Base64::kPaddingRequired |
                                      tarvex::Base64::kEndAtBuffer,
                                  &bytes, nullptr);
  return bytes;
}

std::string Payload(const Json::Value& event) {
  const std::string bytes = Bytes(event, "payload_base64");
  return bytes.empty() ? Text(event, "payload") : bytes;
}

std::optional<std::uint32_t> PublishedPlateId(const std::string& payload) {
  Json::Value document;
  if (!Json::String2Json(payload, document)) {
    return std::nullopt;
  }
  const Json::Value& plate = Member(
      Member(Member(Member(document, "payload"), "AlarmInfoPlate"), "result"), "PlateResult");
  const Json::Value& id = Member(plate, "plateid");
  return id.isUInt() ? std::optional(id.asUInt()) : std::nullopt;
}

std::size_t WeightOf(const Passport& passport) {
  std::size_t bytes = 512 + passport.steps.size() * 64;
  if (passport.bus) {
    bytes += passport.bus->body.size();
  }
  for (const Passport::AtBroker& message : passport.mqtt) {
    bytes += message.payload.size();
  }
  for (const Passport::BusRequest& request : passport.bus_requests) {
    bytes += request.body.size() + (request.reply ? request.reply->size() : 0);
  }
  bytes += passport.request ? passport.request->payload.size() : 0;
  bytes += passport.response ? passport.response->payload.size() : 0;
  return bytes;
}

}  // namespace

struct PassportBook::Row {
  const char* event;
  void (PassportBook::*note)(const Json::Value& event);
};

PassportBook::PassportBook(OnStep on_step, const Limits& limits)
    : on_step_(std::move(on_step)), limits_(limits) {}

void PassportBook::OnTrace(const Json::Value& event) {
  static const Row rows[] = {
      {"stored", &PassportBook::Stored},
      {"announced", &PassportBook::Announced},
      {"delivered", &PassportBook::Delivered},
      {"handed_over", &PassportBook::HandedOver},
      {"published", &PassportBook::Published},
      {"not_published", &PassportBook::NotPublished},
      {"acknowledged", &PassportBook::Acknowledged},
      {"unconfirmed", &PassportBook::Unconfirmed},
      {"request", &PassportBook::Requested},
      {"bus_request", &PassportBook::BusRequested},
      {"response", &PassportBook::Responded},
  };
  if (Text(event, "sn").empty()) {
    return;
  }
  const std::string name = Text(event, "event");
  for (const Row& row : rows) {
    if (name == row.event) {
      (this->*row.note)(event);
      MakeRoom();
      return;
    }
  }
}

// The camera ------------------------------------------------------------------------

void PassportBook::Stored(const Json::Value& event) {
  if (const auto plate_id = PlateId(event)) {
    Passport& result = Result(Text(event, "sn"), *plate_id, Number(event, "at_us"));
    Advance(&result, "stored");
    Step(&result, "stored", "camera", Number(event, "at_us"));
  }
}

void PassportBook::Announced(const Json::Value& event) {
  const std::string sn = Text(event, "sn");
  const Time_us at_us = Number(event, "at_us");
  const auto plate_id = PlateId(event);
  const std::string topic = Text(event, "topic");
  if (KindOfTopic(topic) == nullptr) {
    return;
  }
  Passport& passport = plate_id ? Result(sn, *plate_id, at_us)
                                : Event(sn, topic, at_us, [](const Passport& present) {
                                    return !present.Has("announced");
                                  });
  Advance(&passport, "announced");
  Step(&passport, "announced", "camera", at_us);
}

void PassportBook::Delivered(const Json::Value& event) {
  if (const auto plate_id = PlateId(event)) {
    Passport& result = Result(Text(event, "sn"), *plate_id, Number(event, "at_us"));
    result.state = "delivered";
    Step(&result, "delivered", "camera", Number(event, "at_us"));
  }
}

void PassportBook::OnBusMessage(const std::string& sn, const std::string& topic,
                                const std::string& body, Time_us at_us) {
  const Kind* kind = KindOfTopic(topic);
  if (kind == nullptr) {
    return;
  }
  const auto head = topic == kResultTopic ? ReadRecord(body) : std::nullopt;
  Passport& passport =
      head ? Result(sn, head->plate_id, at_us)
           : Event(sn, topic, at_us, [](const Passport& present) { return !present.bus; });
  SetRecord(&passport, topic, body, at_us);
  Step(&passport, "on_the_bus", "bus", at_us);
  MakeRoom();
}

void PassportBook::OnStoredRecord(const std::string& sn, const std::string& record, Time_us at_us) {
  const auto head = ReadRecord(record);
  if (!head) {
    return;
  }
  const auto found = entries_.find("result/" + sn + "/" + std::to_string(head->plate_id));
  if (found != entries_.end() && !found->second.passport.bus) {
    SetRecord(&found->second.passport, kStoredTopic, record, at_us);
    Touch(found->second.passport);
    MakeRoom();
  }
}

// The agent -------------------------------------------------------------------------

void PassportBook::HandedOver(const Json::Value& event) {
  const std::string sn = Text(event, "sn");
  const std::string topic = Text(event, "topic");
  const std::string body = Bytes(event, "body");
  const Time_us at_us = Number(event, "at_us");
  if (KindOfTopic(topic) == nullptr) {
    return;
  }
  const auto head = topic == kResultTopic ? ReadRecord(body) : std::nullopt;
  Passport& passport =
      head ? Result(sn, head->plate_id, at_us)
           : Event(sn, topic, at_us, [&body](const Passport& present) {
               return !present.Has("handed_over") && (!present.bus || present.bus->body == body);
             });
  Advance(&passport, "handed_over");
  Step(&passport, "handed_over", "agent", at_us);
}

void PassportBook::Published(const Json::Value& event) {
  const std::string sn = Text(event, "sn");
  const std::string name = Text(event, "name");
  const std::string topic = Text(event, "topic");
  const Time_us at_us = Number(event, "at_us");
  const std::string request = Text(event, "request");
  const auto plate_id = PlateId(event);
  const Kind* kind = KindOfName(name);
  const bool is_redelivered = Number(event, "tag") == kRedeliveryTag;
  Passport* passport = nullptr;
  if (plate_id && kind != nullptr) {
    passport = &Result(sn, *plate_id, at_us);
    passport->is_redelivered = passport->is_redelivered || is_redelivered;
  } else if (!request.empty()) {
    passport = &RequestOf(sn, request, at_us);
  } else if (kind != nullptr) {
    passport = &Event(sn, kind->topic, at_us, [](const Passport& present) {
      return present.Has("handed_over") && !present.Has("published");
    });
  } else {
    passport = &Make("message/" + sn + "/" + std::to_string(++last_event_), sn, "message", at_us);
    passport->name = name;
  }
  if (request.empty()) {
    Advance(passport, "published");
  }
  Step(passport, "published", "agent", at_us, is_redelivered ? "delivered again" : "");
  publications_[sn + "/" + std::to_string(Number(event, "publication"))] = passport->id;
  if (!plate_id) {
    ExpectAtBroker(*passport, topic, static_cast<std::size_t>(Number(event, "bytes")));
  }
}

void PassportBook::NotPublished(const Json::Value& event) {
  if (const auto plate_id = PlateId(event)) {
    Passport& result = Result(Text(event, "sn"), *plate_id, Number(event, "at_us"));
    FallBack(&result, "in_store");
    Step(&result, "not_published", "agent", Number(event, "at_us"), Text(event, "why"));
  }
}

void PassportBook::Acknowledged(const Json::Value& event) {
  Passport* passport = OfPublication(event);
  if (passport == nullptr) {
    return;
  }
  const std::string answer = Text(event, "answer");
  if (passport->kind != "request") {
    if (answer == "taken") {
      passport->ack_us = Number(event, "us");
      Advance(passport, "acknowledged");
    } else {
      FallBack(passport, answer == "refused" ? "refused" : "in_store");
    }
  }
  Step(passport, "acknowledged", "broker", Number(event, "at_us"),
       answer == "unheard"   ? "nobody subscribes to it"
       : answer == "refused" ? "refused"
                             : "");
}

void PassportBook::Unconfirmed(const Json::Value& event) {
  Passport* passport = OfPublication(event);
  if (passport == nullptr) {
    return;
  }
  if (passport->kind != "request") {
    FallBack(passport, "in_store");
  }
  Step(passport, "unconfirmed", "agent", Number(event, "at_us"),
       "the link was lost before the acknowledgement");
  for (auto& [topic, expected] : expected_) {
    expected.erase(
        std::remove_if(expected.begin(), expected.end(),
                       [passport](const Expected& one) { return one.id == passport->id; }),
        expected.end());
  }
}

void PassportBook::Requested(const Json::Value& event) {
  const std::string sn = Text(event, "sn");
  const std::string request = Text(event, "request");
  const std::string correlation = Text(event, "correlation");
  const Time_us at_us = Number(event, "at_us");
  if (request.empty()) {
    return;
  }
  const std::string sent = "request/" + sn + "/" + correlation;
  const bool is_ours = !correlation.empty() && entries_.count(sent) != 0;
  requests_[sn + "/" + request] = is_ours ? sent : "request/" + sn + "/" + request;
  Passport& passport = RequestOf(sn, request, at_us);
  passport.name = Text(event, "name");
  passport.state = "running";
  Passport::Request arrived;
  arrived.topic = Text(event, "topic");
  arrived.payload = Cut(Payload(event), &passport);
  arrived.waited_us = Number(event, "waited_us");
  arrived.at_us = at_us - arrived.waited_us;
  arrived.correlation = correlation;
  passport.request = std::move(arrived);
  Step(&passport, "received", "agent", passport.request->at_us);
  Step(&passport, "begun", "agent", at_us);
}

void PassportBook::BusRequested(const Json::Value& event) {
  const auto found = requests_.find(Text(event, "sn") + "/" + Text(event, "request"));
  if (found == requests_.end()) {
    return;  // the agent's own, or of a confirmation
  }
  Passport& passport = entries_.at(found->second).passport;
  if (passport.bus_requests.size() >= kMaxBusRequests) {
    passport.is_cut = true;
    return;
  }
  Passport::BusRequest request;
  request.queue = Text(event, "queue");
  request.body = Cut(Bytes(event, "body"), &passport);
  request.timeout_ms = static_cast<int>(Number(event, "timeout_ms"));
  request.outcome = Text(event, "outcome");
  request.us = Number(event, "us");
  request.at_us = Number(event, "at_us") - request.us;
  if (Member(event, "reply").isString()) {
    request.reply = Cut(Bytes(event, "reply"), &passport);
  }
  passport.is_cut = passport.is_cut || Member(event, "cut").isBool();
  passport.bus_requests.push_back(std::move(request));
  Touch(passport);
}

void PassportBook::Responded(const Json::Value& event) {
  const std::string request = Text(event, "request");
  const std::string sn = Text(event, "sn");
  if (request.empty()) {
    return;
  }
  Passport& passport = RequestOf(sn, request, Number(event, "at_us"));
  const std::string payload = Cut(Payload(event), &passport);
  passport.response = {Text(event, "topic"), payload, Number(event, "at_us"), Number(event, "us")};
  passport.state = "answered";
  Step(&passport, "answered", "agent", Number(event, "at_us"));
}

// The broker ------------------------------------------------------------------------

std::string PassportBook::OnSent(const std::string& sn, const std::string& name,
                                 const Passport::Request& request) {
  Passport& passport =
      Make("request/" + sn + "/" + request.correlation, sn, "request", request.at_us);
  passport.name = name;
  passport.state = "sent";
  passport.request = request;
  passport.request->payload = Cut(request.payload, &passport);
  Step(&passport, "sent", "console", request.at_us);
  const std::string id = passport.id;
  MakeRoom();
  return id;
}

void PassportBook::OnBrokerMessage(const BrokerMessage& message) {
  if (message.channel == "response") {
    const auto found = entries_.find("request/" + message.sn + "/" + message.correlation);
    if (!message.correlation.empty() && found != entries_.end()) {
      Passport& passport = found->second.passport;
      if (!passport.response) {
        passport.response = {message.topic, Cut(message.payload, &passport), message.at_us, 0};
      }
      passport.state = "answered";
      Step(&passport, "at_the_broker", "broker", message.at_us, "the response");
      MakeRoom();
    }
    return;
  }
  if (const auto plate_id = KindOfName(message.name) == &kKinds[0]
                                ? PublishedPlateId(message.payload)
                                : std::nullopt) {
    PassedOn(&Result(message.sn, *plate_id, message.at_us), message);
    MakeRoom();
    return;
  }
  const std::string id = TakeExpected(message.topic, message.topic.size() + message.payload.size());
  const auto entry = entries_.find(id);
  if (entry != entries_.end()) {
    PassedOn(&entry->second.passport, message);
    MakeRoom();
  } else {
    Keep(message);
  }
}

std::string PassportBook::TakeExpected(const std::string& topic, std::size_t bytes) {
  const auto of_topic = expected_.find(topic);
  if (of_topic == expected_.end()) {
    return "";
  }
  std::deque<Expected>& expected = of_topic->second;
  const auto found = std::find_if(expected.begin(), expected.end(),
                                  [bytes](const Expected& one) { return one.bytes == bytes; });
  if (found == expected.end()) {
    return "";
  }
  const std::string id = found->id;
  expected.erase(found);
  return id;
}

void PassportBook::PassedOn(Passport* passport, const BrokerMessage& message) {
  ++passport->copies;
  if (passport->mqtt.size() < kMaxCopies) {
    passport->mqtt.push_back({message.topic, Cut(message.payload, passport), message.at_us, 0});
  }
  if (passport->kind != "request") {
    Advance(passport, "published");
  }
  Step(passport, "at_the_broker", "broker", message.at_us);
}

void PassportBook::Keep(const BrokerMessage& unclaimed) {
  unclaimed_.push_back(unclaimed);
  if (unclaimed_.size() > kMaxUnclaimed) {
    unclaimed_.pop_front();
  }
}

void PassportBook::ExpectAtBroker(const Passport& passport, const std::string& topic,
                                  std::size_t bytes) {
  const auto early =
      std::find_if(unclaimed_.begin(), unclaimed_.end(), [&](const BrokerMessage& message) {
        return message.topic == topic && message.topic.size() + message.payload.size() == bytes;
      });
  if (early != unclaimed_.end()) {
    const BrokerMessage message = *early;
    unclaimed_.erase(early);
    PassedOn(&entries_.at(passport.id).passport, message);
    return;
  }
  std::deque<Expected>& expected = expected_[topic];
  expected.push_back({passport.id, bytes});
  if (expected.size() > kMaxExpected) {
    expected.pop_front();
  }
}

// Time, and what all share ------------------------------------------------------------

void PassportBook::OnTime(Time_us now_us) {
  // Of an agent that announces nothing only the broker knows.
  while (!unclaimed_.empty() && unclaimed_.front().at_us < now_us - kClaimWithin_us) {
    const BrokerMessage message = unclaimed_.front();
    unclaimed_.pop_front();
    const Kind* kind = KindOfName(message.name);
    Passport& passport = Make("message/" + message.sn + "/" + std::to_string(++last_event_),
                              message.sn, kind != nullptr ? kind->kind : "message", message.at_us);
    passport.name = message.name;
    PassedOn(&passport, message);
  }
  for (auto& [id, entry] : entries_) {
    Passport& passport = entry.passport;
    if ((passport.state == "sent" || passport.state == "running") &&
        passport.at_us < now_us - kAnswerWithin_us) {
      passport.state = "unanswered";
      Touch(passport);
    }
  }
  MakeRoom();
}

Passport& PassportBook::Result(const std::string& sn, std::uint32_t plate_id, Time_us at_us) {
  Passport& passport = Make("result/" + sn + "/" + std::to_string(plate_id), sn, "result", at_us);
  passport.name = kKinds[0].name;
  passport.plate_id = plate_id;
  return passport;
}

// The oldest of that topic for which `is_it`, or a new one.
Passport& PassportBook::Event(const std::string& sn, const std::string& topic, Time_us at_us,
                              const std::function<bool(const Passport&)>& is_it) {
  const Kind* kind = KindOfTopic(topic);
  for (const auto& [order, id] : order_) {
    Passport& present = entries_.at(id).passport;
    if (present.sn == sn && present.name == kind->name && !present.plate_id &&
        present.at_us > at_us - 5 * kSecond_us && is_it(present)) {
      return present;
    }
  }
  Passport& made = Make("event/" + sn + "/" + std::to_string(++last_event_), sn, kind->kind, at_us);
  made.name = kind->name;
  return made;
}

Passport& PassportBook::RequestOf(const std::string& sn, const std::string& request,
                                  Time_us at_us) {
  const auto known = requests_.find(sn + "/" + request);
  const std::string id = known != requests_.end() ? known->second : "request/" + sn + "/" + request;
  requests_[sn + "/" + request] = id;
  return Make(id, sn, "request", at_us);
}

Passport& PassportBook::Make(const std::string& id, const std::string& sn, const std::string& kind,
                             Time_us at_us) {
  const auto [found, is_new] = entries_.try_emplace(id);
  Entry& entry = found->second;
  if (is_new) {
    entry.passport.id = id;
    entry.passport.sn = sn;
    entry.passport.kind = kind;
    entry.passport.at_us = at_us;
    entry.order = ++last_order_;
    order_[entry.order] = id;
  }
  return entry.passport;
}

Passport* PassportBook::OfPublication(const Json::Value& event) {
  const auto found =
      publications_.find(Text(event, "sn") + "/" + std::to_string(Number(event, "publication")));
  if (found == publications_.end()) {
    return nullptr;
  }
  const std::string id = found->second;
  publications_.erase(found);
  return &entries_.at(id).passport;
}

void PassportBook::SetRecord(Passport* passport, const std::string& topic, const std::string& body,
                             Time_us at_us) {
  passport->bus = {topic, Cut(body, passport), at_us};
  if (const auto head = ReadRecord(body)) {
    passport->plate = head->plate;
  }
}

void PassportBook::Step(Passport* passport, const char* what, const char* by, Time_us at_us,
                        const std::string& note) {
  passport->Add(what, by, at_us, note);
  passport->at_us = std::min(passport->at_us, at_us);
  Touch(*passport);
  on_step_(*passport, what);
}

void PassportBook::Touch(const Passport& passport) {
  changed_.insert(passport.id);
  Entry& entry = entries_.at(passport.id);
  bytes_ -= entry.bytes;
  entry.bytes = WeightOf(passport);
  bytes_ += entry.bytes;
}

std::string PassportBook::Cut(std::string text, Passport* passport) const {
  if (text.size() > limits_.text_bytes) {
    text.resize(limits_.text_bytes);
    passport->is_cut = true;
  }
  return text;
}

void PassportBook::MakeRoom() {
  while (entries_.size() > limits_.passports || (bytes_ > limits_.bytes && entries_.size() > 1)) {
    Forget(entries_.find(order_.begin()->second));
  }
}

void PassportBook::Forget(std::map<std::string, Entry>::iterator oldest) {
  const std::string id = oldest->first;
  const auto forget_in = [&id](std::map<std::string, std::string>* names) {
    for (auto name = names->begin(); name != names->end();) {
      name = name->second == id ? names->erase(name) : std::next(name);
    }
  };
  forget_in(&requests_);
  forget_in(&publications_);
  changed_.erase(id);
  bytes_ -= oldest->second.bytes;
  order_.erase(oldest->second.order);
  entries_.erase(oldest);
}

std::vector<const Passport*> PassportBook::TakeChanged() {
  std::vector<const Passport*> changed;
  for (const std::string& id : std::exchange(changed_, {})) {
    changed.push_back(&entries_.at(id).passport);
  }
  return changed;
}

std::vector<const Passport*> PassportBook::All() const {
  std::vector<const Passport*> all;
  for (const auto& [order, id] : order_) {
    all.push_back(&entries_.at(id).passport);
  }
  return all;
}

const Passport* PassportBook::Find(const std::string& id) const {
  const auto found = entries_.find(id);
  return found == entries_.end() ? nullptr : &found->second.passport;
}

const Passport* PassportBook::FindShort(const std::string& text) const {
  if (const Passport* whole = Find(text)) {
    return whole;
  }
  const std::string end = "/" + text;
  for (auto latest = order_.rbegin(); latest != order_.rend(); ++latest) {
    const Passport& passport = entries_.at(latest->second).passport;
    const std::string& id = passport.id;
    if ((passport.kind == "result" || passport.kind == "request") && id.size() > end.size() &&
        id.compare(id.size() - end.size(), end.size(), end) == 0) {
      return &passport;
    }
  }
  return nullptr;
}

}  // namespace console
