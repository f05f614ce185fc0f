#include "console/passports/passport.h"

#include <algorithm>

#include "tarvex/base64.h"

namespace console {
namespace {

constexpr std::size_t kMaxSteps = 40;

/// The states in the order in which a message comes to them.
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

Json::Value Int(std::int64_t number) { return Json::Int64{number}; }

Json::Value ToJson(const Passport::Step& step) {
  Json::Value json(Json::objectValue);
  json["what"] = step.what;
  json["by"] = step.by;
  json["at_us"] = Int(step.at_us);
  if (!step.note.empty()) {
    json["note"] = step.note;
  }
  return json;
}

Json::Value ToJson(const Passport::AtBroker& message) {
  Json::Value json(Json::objectValue);
  json["topic"] = message.topic;
  json["payload"] = message.payload;
  json["at_us"] = Int(message.at_us);
  return json;
}

Json::Value ToJson(const Passport::Request& request) {
  Json::Value json(Json::objectValue);
  json["topic"] = request.topic;
  json["payload"] = request.payload;
  json["at_us"] = Int(request.at_us);
  json["waited_us"] = Int(request.waited_us);
  if (!request.correlation.empty()) {
    json["correlation"] = request.correlation;
  }
  return json;
}

Json::Value ToJson(const Passport::BusRequest& request) {
  Json::Value json(Json::objectValue);
  json["queue"] = request.queue;
  json["body"] = tarvex::Base64::Encode(request.body);
  json["timeout_ms"] = request.timeout_ms;
  json["outcome"] = request.outcome;
  json["us"] = Int(request.us);
  json["at_us"] = Int(request.at_us);
  if (request.reply) {
    json["reply"] = tarvex::Base64::Encode(*request.reply);
  }
  return json;
}

template <typename Part>
Json::Value ToArray(const std::vector<Part>& parts) {
  Json::Value array(Json::arrayValue);
  for (const Part& part : parts) {
    array.append(ToJson(part));
  }
  return array;
}

}  // namespace

bool Passport::Has(const char* step) const {
  return std::any_of(steps.begin(), steps.end(),
                     [step](const Step& present) { return present.what == step; });
}

void Passport::Add(const char* step, const char* by, Time_us time_us, const std::string& note) {
  if (steps.size() >= kMaxSteps) {
    return;
  }
  // What came over another way may be told late.
  const auto later =
      std::upper_bound(steps.begin(), steps.end(), time_us,
                       [](Time_us time, const Step& present) { return time < present.at_us; });
  steps.insert(later, {step, by, time_us, note});
}

void Passport::Advance(const char* to) {
  if (RankOf(to) > RankOf(state)) {
    state = to;
  }
}

void Passport::FallBack(const char* to) {
  if (state != "delivered") {
    state = to;
  }
}

Json::Value Passport::ToJson() const {
  Json::Value json(Json::objectValue);
  json["id"] = id;
  json["sn"] = sn;
  json["kind"] = kind;
  json["name"] = name;
  json["state"] = state;
  json["at_us"] = Int(at_us);
  json["redelivered"] = is_redelivered;
  json["copies"] = copies;
  json["mqtt"] = ToArray(mqtt);
  json["steps"] = ToArray(steps);
  if (ack_us) {
    json["ack_us"] = Int(*ack_us);
  }
  if (bus) {
    json["bus"]["topic"] = bus->topic;
    json["bus"]["body"] = tarvex::Base64::Encode(bus->body);
    json["bus"]["at_us"] = Int(bus->at_us);
  }
  if (request) {
    json["request"] = console::ToJson(*request);
    json["bus_requests"] = ToArray(bus_requests);
  }
  if (response) {
    json["response"] = console::ToJson(*response);
    json["response"]["us"] = Int(response->us);
  }
  if (plate_id) {
    json["plate_id"] = *plate_id;
  }
  if (!plate.empty()) {
    json["plate"] = plate;
  }
  if (is_cut) {
    json["cut"] = true;
  }
  return json;
}

}  // namespace console
