#include "cloud_agent/status/status.h"

#include <chrono>

#include "json_text.h"

namespace agent {
namespace {

Json::Value NamesJson(const std::set<std::string>& names) {
  Json::Value array(Json::arrayValue);
  for (const std::string& name : names) {
    array.append(name);
  }
  return array;
}

Json::Value CountersJson(const StatusCounters& counters) {
  Json::Value object(Json::objectValue);
  const auto add = [&object](const char* key, std::uint64_t count) {
    object[key] = Json::UInt64{count};
  };
  add("connections", counters.connections);
  add("published", counters.published);
  add("acknowledged", counters.acknowledged);
  add("refused_by_broker", counters.refused_by_broker);
  add("dropped_link_down", counters.dropped_link_down);
  add("dropped_backlog_full", counters.dropped_backlog_full);
  add("dropped_not_publishable", counters.dropped_not_publishable);
  add("pictures_failed", counters.pictures_failed);
  add("subscriptions_refused", counters.subscriptions_refused);
  add("dropped_offline_busy", counters.delivery.dropped_offline_busy);
  add("results_waiting", counters.results_waiting);
  add("results_overflowed", counters.delivery.results_overflowed);
  add("results_held_back", counters.delivery.results_held_back);
  add("results_unheard", counters.delivery.results_unheard);
  add("results_without_publication", counters.delivery.results_without_publication);
  add("ignored_acks", counters.delivery.ignored_acks);
  add("withheld_acks", counters.delivery.withheld_acks);
  add("requests", counters.requests);
  add("request_errors", counters.request_errors);
  return object;
}

Json::Value UndeliveredJson(const std::optional<Undelivered>& undelivered) {
  if (!undelivered) {
    return {};
  }
  Json::Value object(Json::objectValue);
  object["count"] = Json::Int64{undelivered->count};
  object["oldest_age_s"] = undelivered->oldest_age_s
                               ? Json::Value(Json::Int64{*undelivered->oldest_age_s})
                               : Json::Value();
  return object;
}

Json::Value LastErrorJson(const std::optional<tarvex::LoggedError>& error) {
  if (!error) {
    return {};
  }
  using std::chrono::duration_cast;
  using std::chrono::seconds;
  Json::Value object(Json::objectValue);
  object["text"] = error->text;
  object["at"] = Json::Int64{duration_cast<seconds>(error->time.time_since_epoch()).count()};
  return object;
}

}  // namespace

std::string AgentVersion() { return AGENT_VERSION; }

std::string OnlineStatus(const Status& status) {
  Json::Value document(Json::objectValue);
  document["online"] = true;
  document["device"] = status.is_device_there;
  document["health"] = status.health;
  document["versions"]["agent"] = status.versions.agent;
  document["versions"]["plugin"] = status.versions.plugin;
  document["versions"]["camera"] = status.versions.camera;
  document["started_at"] = Json::Int64{status.started_at};
  document["last_error"] = LastErrorJson(status.last_error);
  document["requests"] = NamesJson(status.requests);
  document["publishes"] = NamesJson(status.publishes);
  document["counters"] = CountersJson(status.counters);
  document["undelivered"] = UndeliveredJson(status.undelivered);
  std::string text;
  return Json::Json2String(document, text) ? text : R"({"online":true})";
}

std::string OfflineStatus() { return R"({"online":false})"; }

}  // namespace agent
