#include "cloud_agent/status.h"

#include <json/value.h>

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

}  // namespace

std::string OnlineStatus(const std::set<std::string>& requests,
                         const std::set<std::string>& publishes, const StatusCounters& counters,
                         const std::optional<Undelivered>& undelivered) {
  Json::Value status(Json::objectValue);
  status["online"] = true;
  status["requests"] = NamesJson(requests);
  status["publishes"] = NamesJson(publishes);
  status["counters"] = CountersJson(counters);
  status["undelivered"] = UndeliveredJson(undelivered);
  std::string text;
  return Json::Json2String(status, text) ? text : R"({"online":true})";
}

std::string OfflineStatus() { return R"({"online":false})"; }

}  // namespace agent
