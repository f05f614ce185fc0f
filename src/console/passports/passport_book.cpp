#include "console/passports/passport_book.h"

#include <algorithm>
#include <optional>
#include <utility>

#include "console/passports/message_kinds.h"
#include "console/passports/record.h"

namespace console {
namespace {

// The ways of the three sources differ by no more than this.
constexpr Time_us kClaimWithin_us = kSecond_us;
constexpr Time_us kAnswerWithin_us = 15 * kSecond_us;
constexpr std::size_t kMaxUnclaimed = 256;
constexpr std::size_t kMaxExpected = 64;
constexpr std::size_t kMaxCopies = 4;
constexpr char kStoredTopic[] = "STP_SELECT_MQTT_OFFLINE_RECORD";

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

PassportBook::PassportBook(OnStep on_step, const Limits& limits)
    : on_step_(std::move(on_step)), limits_(limits) {}

void PassportBook::OnBusMessage(const std::string& sn, const std::string& topic,
                                const std::string& body, Time_us at_us) {
  const MessageKind* kind = KindOfTopic(topic);
  if (kind == nullptr) {
    return;
  }
  const auto head = topic == ResultKind().topic ? ReadRecord(body) : std::nullopt;
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
  if (const auto head = KindOfName(message.name) == &ResultKind() ? ReadPublished(message.payload)
                                                                  : std::nullopt) {
    Passport& passport = Result(message.sn, head->plate_id, message.at_us);
    if (passport.plate.empty()) {
      passport.plate = head->plate;
    }
    PassedOn(&passport, message);
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
    passport->Advance("published");
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

void PassportBook::OnTime(Time_us now_us) {
  // Of an agent that announces nothing only the broker knows.
  while (!unclaimed_.empty() && unclaimed_.front().at_us < now_us - kClaimWithin_us) {
    const BrokerMessage message = unclaimed_.front();
    unclaimed_.pop_front();
    const MessageKind* kind = KindOfName(message.name);
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
  passport.name = ResultKind().name;
  passport.plate_id = plate_id;
  return passport;
}

// The oldest of that topic for which `is_it`, or a new one.
Passport& PassportBook::Event(const std::string& sn, const std::string& topic, Time_us at_us,
                              const std::function<bool(const Passport&)>& is_it) {
  const MessageKind* kind = KindOfTopic(topic);
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
