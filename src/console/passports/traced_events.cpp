// What the desk's programs announce of the messages.
#include <algorithm>
#include <optional>
#include <utility>

#include "console/passports/message_kinds.h"
#include "console/passports/passport_book.h"
#include "console/passports/record.h"
#include "platform/json_member.h"
#include "platform/trace.h"

namespace console {
namespace {

using tarvex::Member;
using tarvex::TracedBytes;

constexpr std::size_t kMaxBusRequests = 16;
constexpr int kRedeliveryTag = 16;

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

std::string Payload(const Json::Value& event) {
  const std::string bytes = TracedBytes(event, "payload_base64");
  return bytes.empty() ? Text(event, "payload") : bytes;
}

}  // namespace

struct PassportBook::Row {
  const char* event;
  void (PassportBook::*note)(const Json::Value& event);
};

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
    result.Advance("stored");
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
  passport.Advance("announced");
  Step(&passport, "announced", "camera", at_us);
}

void PassportBook::Delivered(const Json::Value& event) {
  if (const auto plate_id = PlateId(event)) {
    Passport& result = Result(Text(event, "sn"), *plate_id, Number(event, "at_us"));
    result.state = "delivered";
    Step(&result, "delivered", "camera", Number(event, "at_us"));
  }
}

// The agent -------------------------------------------------------------------------

void PassportBook::HandedOver(const Json::Value& event) {
  const std::string sn = Text(event, "sn");
  const std::string topic = Text(event, "topic");
  const std::string body = TracedBytes(event, "body");
  const Time_us at_us = Number(event, "at_us");
  if (KindOfTopic(topic) == nullptr) {
    return;
  }
  const auto head = topic == ResultKind().topic ? ReadRecord(body) : std::nullopt;
  Passport& passport =
      head ? Result(sn, head->plate_id, at_us)
           : Event(sn, topic, at_us, [&body](const Passport& present) {
               return !present.Has("handed_over") && (!present.bus || present.bus->body == body);
             });
  passport.Advance("handed_over");
  Step(&passport, "handed_over", "agent", at_us);
}

void PassportBook::Published(const Json::Value& event) {
  const std::string sn = Text(event, "sn");
  const std::string name = Text(event, "name");
  const std::string topic = Text(event, "topic");
  const Time_us at_us = Number(event, "at_us");
  const std::string request = Text(event, "request");
  const auto plate_id = PlateId(event);
  const MessageKind* kind = KindOfName(name);
  const bool is_redelivered = Number(event, "tag") == kRedeliveryTag;
  const bool is_result = plate_id && kind == &ResultKind();
  Passport* passport = nullptr;
  if (is_result) {
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
    passport->Advance("published");
  }
  Step(passport, "published", "agent", at_us, is_redelivered ? "delivered again" : "");
  publications_[sn + "/" + std::to_string(Number(event, "publication"))] = passport->id;
  if (!is_result) {
    ExpectAtBroker(*passport, topic, static_cast<std::size_t>(Number(event, "bytes")));
  }
}

void PassportBook::NotPublished(const Json::Value& event) {
  if (const auto plate_id = PlateId(event)) {
    Passport& result = Result(Text(event, "sn"), *plate_id, Number(event, "at_us"));
    result.FallBack("in_store");
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
      passport->Advance("acknowledged");
    } else {
      passport->FallBack(answer == "refused" ? "refused" : "in_store");
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
    passport->FallBack("in_store");
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
  if (passport.state != "answered") {  // the broker may have passed on the response already
    passport.state = "running";
  }
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
  request.body = Cut(TracedBytes(event, "body"), &passport);
  request.timeout_ms = static_cast<int>(Number(event, "timeout_ms"));
  request.outcome = Text(event, "outcome");
  request.us = Number(event, "us");
  request.at_us = Number(event, "at_us") - request.us;
  if (Member(event, "reply").isString()) {
    request.reply = Cut(TracedBytes(event, "reply"), &passport);
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

Passport& PassportBook::RequestOf(const std::string& sn, const std::string& request,
                                  Time_us at_us) {
  const auto known = requests_.find(sn + "/" + request);
  const std::string id = known != requests_.end() ? known->second : "request/" + sn + "/" + request;
  requests_[sn + "/" + request] = id;
  return Make(id, sn, "request", at_us);
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

}  // namespace console
