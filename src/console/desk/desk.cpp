#include "console/desk/desk.h"

#include <utility>

#include "json_text.h"
#include "platform/json_member.h"

namespace console {
namespace {

using tarvex::Member;

constexpr std::size_t kMaxCameras = 4096;
constexpr std::size_t kMaxTold = 200;

std::optional<std::int64_t> IntOf(const Json::Value& value) {
  return value.isInt64() ? std::optional(value.asInt64()) : std::nullopt;
}

std::string LinkText(const LinkState& link) {
  if (link.mode == "cut") {
    return "The link between agent and broker is cut.";
  }
  if (link.mode == "frozen") {
    return "The link between agent and broker is frozen: nothing passes, nothing is refused.";
  }
  if (link.mode == "limping") {
    return "The link between agent and broker limps: " + std::to_string(link.delay_ms) +
           " ms late, " +
           (link.bytes_per_second > 0 ? std::to_string(link.bytes_per_second) + " bytes per second."
                                      : "as fast as it goes.");
  }
  return "The link between agent and broker is whole again.";
}

}  // namespace

Desk::Desk(const Addresses& addresses) : addresses_(addresses) {}

void Desk::AddCamera(const std::string& sn, bool can_restart_agent) {
  cameras_[sn].is_on_desk = true;
  cameras_[sn].can_restart_agent = can_restart_agent;
}

void Desk::OnBroker(bool is_connected, Time_us now_us) {
  is_broker_connected_ = is_connected;
  has_desk_changed_ = true;
  Tell(is_connected ? "The broker is there." : "The broker is gone.", is_connected ? "good" : "bad",
       now_us);
  NoteTrouble(now_us);
}

void Desk::OnBus(bool is_connected, Time_us now_us) {
  is_bus_connected_ = is_connected;
  has_desk_changed_ = true;
  Tell(is_connected ? "The camera's bus is there." : "The camera's bus is gone.",
       is_connected ? "good" : "bad", now_us);
  NoteTrouble(now_us);
}

void Desk::OnLink(const LinkState& link, Time_us now_us) {
  if (link == link_) {
    return;
  }
  const bool is_other_mode = link.mode != link_.mode || link.delay_ms != link_.delay_ms ||
                             link.bytes_per_second != link_.bytes_per_second;
  const bool is_first = link_.port != link.port;
  link_ = link;
  has_desk_changed_ = true;
  if (is_other_mode && !is_first) {
    Tell(LinkText(link), link.mode == "whole" ? "good" : "bad", now_us);
    NoteTrouble(now_us);
  }
}

void Desk::OnStatus(const std::string& sn, const std::string& text, Time_us now_us) {
  Json::Value status;
  if (!Json::String2Json(text, status) || !status.isObject() ||
      (cameras_.count(sn) == 0 && cameras_.size() >= kMaxCameras)) {
    return;
  }
  Camera& camera = cameras_[sn];
  const Json::Value& online = Member(status, "online");
  const bool is_online = online.isBool() && online.asBool();
  if (is_online != camera.is_online) {
    camera.since_us = camera.status_at_us != 0 ? now_us : 0;
    Tell(is_online ? sn + " is online." : sn + " is offline: its agent has no link.",
         is_online ? "good" : "bad", now_us);
  }
  camera.is_online = is_online;
  camera.started_at = Member(status, "started_at");
  camera.undelivered = Member(status, "undelivered");
  camera.status_at_us = now_us;
  changed_cameras_.insert(sn);
  if (camera.is_on_desk) {
    NoteTrouble(now_us);
  }
}

void Desk::OnWorld(const std::string& sn, const Json::Value& state, const std::string& error,
                   Time_us now_us) {
  Camera& camera = cameras_[sn];
  if (camera.world.isNull() != state.isNull()) {
    Tell(state.isNull() ? "The camera " + sn + " does not answer: " + error + "."
                        : "The camera " + sn + " answers.",
         state.isNull() ? "bad" : "good", now_us);
  }
  if (camera.world != state || camera.world_error != error) {
    camera.world = state;
    camera.world_error = error;
    changed_cameras_.insert(sn);
  }
  camera.world_at_us = now_us;
  if (const auto removed = IntOf(Member(Member(state, "results"), "undelivered_removed"))) {
    outage_.OnRemoved(sn, *removed);
  }
  NoteTrouble(now_us);
}

void Desk::OnAgentLink(const std::string& sn, bool is_up, const std::string& reason,
                       Time_us now_us) {
  Tell(is_up ? "The agent of " + sn + " is connected to the broker."
             : "The agent of " + sn + " has lost the broker: " + reason + ".",
       is_up ? "good" : "bad", now_us);
}

void Desk::OnStep(const Passport& passport, const std::string& step, Time_us now_us) {
  const auto camera = cameras_.find(passport.sn);
  if (!passport.plate_id || camera == cameras_.end()) {
    return;
  }
  const std::uint32_t plate_id = *passport.plate_id;
  if (step == "stored") {
    outage_.OnStored(passport.sn, plate_id);
  } else if (step == "delivered") {
    outage_.OnMarkedAsDelivered(passport.sn, plate_id, now_us);
  } else if (step == "at_the_broker") {
    outage_.OnArrived(passport.sn, plate_id);
    camera->second.recent.OnArrived(passport.plate, now_us);
    changed_recent_.insert(passport.sn);
  } else if (passport.is_redelivered && step == "published") {
    camera->second.redelivery.OnPublished(now_us);
  } else if (passport.is_redelivered && step == "acknowledged") {
    camera->second.redelivery.OnAcknowledged(now_us);
  } else {
    return;
  }
  has_desk_changed_ = true;
}

void Desk::Tell(const std::string& text, const char* level, Time_us now_us) {
  told_.push_back({++last_told_, now_us, text, level});
  if (told_.size() > kMaxTold) {
    told_.pop_front();
  }
}

void Desk::OnTime(Time_us now_us) {
  for (auto& [sn, camera] : cameras_) {
    if (camera.redelivery.OnTime(BacklogOf(sn), now_us)) {
      changed_cameras_.insert(sn);
    }
    if (camera.recent.OnTime(now_us)) {
      changed_recent_.insert(sn);
    }
  }
  if (const auto line = outage_.OnTime(now_us)) {
    Tell(*line, "good", now_us);
    has_desk_changed_ = true;
  }
}

// Whether something that was there is not as it should be.
bool Desk::IsTrouble() const {
  if (!is_broker_connected_ || !is_bus_connected_ || link_.mode != "whole") {
    return true;
  }
  for (const auto& [sn, camera] : cameras_) {
    if (camera.is_on_desk && (!camera.is_online || camera.world.isNull())) {
      return true;
    }
  }
  return false;
}

void Desk::NoteTrouble(Time_us now_us) {
  const bool is_trouble = IsTrouble();
  was_whole_ = was_whole_ || !is_trouble;
  if (was_whole_) {
    outage_.OnTrouble(is_trouble, now_us);
    has_desk_changed_ = true;
  }
}

bool Desk::IsOnline(const std::string& sn) const {
  const auto found = cameras_.find(sn);
  return found != cameras_.end() && found->second.is_online;
}

std::optional<std::int64_t> Desk::BacklogOf(const std::string& sn) const {
  const auto found = cameras_.find(sn);
  if (found == cameras_.end()) {
    return std::nullopt;
  }
  const auto counted = IntOf(Member(Member(found->second.world, "results"), "undelivered"));
  return counted ? counted : IntOf(Member(found->second.undelivered, "count"));
}

Json::Value Desk::CameraJson(const Camera& camera) const {
  Json::Value json(Json::objectValue);
  json["on_desk"] = camera.is_on_desk;
  json["can_restart_agent"] = camera.can_restart_agent;
  json["online"] = camera.is_online;
  json["since_us"] = camera.since_us == 0 ? Json::Value() : Json::Int64{camera.since_us};
  json["started_at"] = camera.started_at;
  json["world"] = camera.world;
  if (!camera.world_error.empty()) {
    json["world_error"] = camera.world_error;
  }
  json["redelivery"] = camera.redelivery.ToJson();
  // The camera's own count also stands while the link does not.
  const Json::Value& results = Member(camera.world, "results");
  json["backlog"] = Json::Value();
  if (Member(results, "undelivered").isInt64()) {
    json["backlog"]["count"] = results["undelivered"];
    json["backlog"]["oldest_age_s"] = Member(results, "oldest_undelivered_age_s");
    json["backlog"]["at_us"] = Json::Int64{camera.world_at_us};
  } else if (camera.undelivered.isObject()) {
    json["backlog"] = camera.undelivered;
    json["backlog"]["at_us"] = Json::Int64{camera.status_at_us};
  }
  return json;
}

Json::Value Desk::DeskJson(Time_us now_us) const {
  Json::Value json(Json::objectValue);
  json["now_us"] = Json::Int64{now_us};
  json["broker"]["connected"] = is_broker_connected_;
  json["broker"]["address"] = addresses_.broker;
  json["bus"] = Json::Value();
  if (!addresses_.bus.empty()) {
    json["bus"]["connected"] = is_bus_connected_;
    json["bus"]["address"] = addresses_.bus;
  }
  json["link"] = Json::Value();
  if (link_.port != 0) {
    json["link"]["mode"] = link_.mode;
    json["link"]["delay_ms"] = link_.delay_ms;
    json["link"]["bytes_per_second"] = link_.bytes_per_second;
    json["link"]["connections"] = link_.connections;
    json["link"]["port"] = link_.port;
  }
  json["outage"] = outage_.ToJson(now_us);
  return json;
}

Json::Value Desk::ToldJson(const Told& told) {
  Json::Value json(Json::objectValue);
  json["n"] = Json::UInt64{told.number};
  json["at_us"] = Json::Int64{told.at_us};
  json["text"] = told.text;
  json["level"] = told.level;
  return json;
}

Json::Value Desk::All(Time_us now_us) const {
  Json::Value json(Json::objectValue);
  json["cameras"] = Json::Value(Json::objectValue);
  for (const auto& [sn, camera] : cameras_) {
    json["cameras"][sn] = CameraJson(camera);
    if (const Json::Value recent = camera.recent.ToJson(); !recent.isNull()) {
      json["recent"][sn] = recent;
    }
  }
  json["desk"] = DeskJson(now_us);
  json["told"] = Json::Value(Json::arrayValue);
  for (const Told& told : told_) {
    json["told"].append(ToldJson(told));
  }
  return json;
}

Json::Value Desk::TakeChanged(Time_us now_us) {
  Json::Value json;
  for (const std::string& sn : std::exchange(changed_cameras_, {})) {
    json["cameras"][sn] = CameraJson(cameras_.at(sn));
  }
  for (const std::string& sn : std::exchange(changed_recent_, {})) {
    json["recent"][sn] = cameras_.at(sn).recent.ToJson();
  }
  if (std::exchange(has_desk_changed_, false)) {
    json["desk"] = DeskJson(now_us);
  }
  for (const Told& told : told_) {
    if (told.number > sent_told_) {
      json["told"].append(ToldJson(told));
    }
  }
  sent_told_ = last_told_;
  return json;
}

}  // namespace console
