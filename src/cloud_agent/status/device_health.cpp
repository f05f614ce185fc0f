#include "cloud_agent/status/device_health.h"

#include <algorithm>

#include "cloud_agent/delivery/undelivered.h"

namespace agent {

using tarvex::BusOutcome;

void DeviceHealth::OnBusRequest(const tarvex::BusRequest& request, TimePoint now) {
  is_bus_there_ = request.outcome != BusOutcome::kNotConnected;
  services_[request.queue] = {request.outcome == BusOutcome::kAnswered, now};
}

bool DeviceHealth::IsDeviceThere(const std::map<std::string, bool>& databases) const {
  const auto store = services_.find(kStoreQueue);
  return is_bus_there_ && store != services_.end() && store->second.answers &&
         std::all_of(databases.begin(), databases.end(),
                     [](const auto& database) { return database.second; });
}

Json::Value DeviceHealth::ToJson(const std::map<std::string, bool>& databases,
                                 TimePoint now) const {
  Json::Value health(Json::objectValue);
  health["bus"] = is_bus_there_;
  health["databases"] = Json::Value(Json::objectValue);
  for (const auto& [name, is_there] : databases) {
    health["databases"][name] = is_there;
  }
  health["services"] = Json::Value(Json::objectValue);
  for (const auto& [queue, service] : services_) {
    Json::Value& entry = health["services"][queue];
    entry["answers"] = service.answers;
    entry["age_s"] = Json::Int64{
        std::chrono::duration_cast<std::chrono::seconds>(now - service.seen_at).count()};
  }
  return health;
}

}  // namespace agent
