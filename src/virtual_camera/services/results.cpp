// Queue "BUS_GET_IVS_INFO": the store of results, for live and offline delivery.
//
// get_last_ivs                    the newest record, 552 bytes, or no bytes
// get_img_path_by_id              {"body":{"img_path":...}}, without the path if unknown
// STP_GET_MQTT_OFFLINE_COUNT      {"body":{"offline_count":n,"oldest_age_s":s}}
// STP_SELECT_MQTT_OFFLINE_RECORD  undelivered records from an id on, 556 bytes each
// STP_SET_MQTT_OFFLINE_STATUS     marks a result as delivered
// STP_CLEAR_MQTT_OFFLINE          marks all undelivered results as cleared
#include <algorithm>

#include "platform/log.h"
#include "virtual_camera/device/device.h"
#include "virtual_camera/services/services.h"
#include "virtual_camera/world/ivs_record.h"

namespace virtual_camera {

namespace {

// Keeps an answer below 1 MB, which is the most that the bus carries in one message.
constexpr uint32_t kMaxSelected = 1000;

class Results : public JsonService {
 public:
  explicit Results(Device& device) : device_(device), store_(device.results) {}

 protected:
  std::string Handle(const std::string& type, const Json::Value& request) override {
    if (type == "get_last_ivs") {
      return store_.Newest().value_or("");
    }
    if (type == "get_img_path_by_id") {
      return PicturePath(RequiredUnsigned(request["body"], "plateid"));
    }
    if (type == "STP_GET_MQTT_OFFLINE_COUNT") {
      return OfflineCount();
    }
    if (type == "STP_SELECT_MQTT_OFFLINE_RECORD") {
      return Select(RequiredUnsigned(request["body"], "count"),
                    RequiredUnsigned(request["body"], "id"));
    }
    if (type == "STP_SET_MQTT_OFFLINE_STATUS") {
      return MarkDelivered(RequiredUnsigned(request["body"], "plate_id"));
    }
    if (type == "STP_CLEAR_MQTT_OFFLINE") {
      return Clear();
    }
    RefuseType(type);
  }

 private:
  std::string PicturePath(uint32_t id) {
    Json::Value body(Json::objectValue);
    if (const auto record = store_.Find(id)) {
      body["img_path"] = GetText(RecordFromBytes(*record).full_path);
    }
    return Accepted(body);
  }

  std::string OfflineCount() {
    Json::Value body;
    body["offline_count"] = static_cast<Json::Int64>(store_.totals().undelivered);
    body["oldest_age_s"] = static_cast<Json::Int64>(device_.OldestUndeliveredAge());
    return Accepted(body);
  }

  std::string Select(uint32_t count, uint32_t min_id) {
    std::string run;
    for (const std::string& record :
         store_.SelectUndelivered(min_id, std::min(count, kMaxSelected))) {
      run += record;
      // The delivery status, 32 bits: 0 for undelivered, as all of these are.
      run.append(kOfflineRecordSize - kIvsRecordSize, '\0');
    }
    return run;
  }

  std::string MarkDelivered(uint32_t id) {
    Json::Value body;
    const bool is_changed = store_.MarkDelivered(id);
    body["changed"] = is_changed ? 1 : 0;
    if (is_changed) {
      Tell("delivered", "plate_id", Json::Value(id));
    }
    return Accepted(body);
  }

  std::string Clear() {
    const int64_t cleared = store_.ClearUndelivered();
    SYS_LOG(kLogInfo, "%lld undelivered results cleared", static_cast<long long>(cleared));
    Json::Value body;
    body["cleared"] = static_cast<Json::Int64>(cleared);
    Tell("cleared", "count", body["cleared"]);
    return Accepted(body);
  }

  void Tell(const char* event, const char* key, const Json::Value& value) const {
    if (device_.trace != nullptr) {
      Json::Value members;
      members[key] = value;
      device_.trace->Tell(event, members);
    }
  }

  Device& device_;
  ResultStore& store_;
};

}  // namespace

std::unique_ptr<Service> CreateResults(Device& device) { return std::make_unique<Results>(device); }

}  // namespace virtual_camera
