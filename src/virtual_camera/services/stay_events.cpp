// Queue "stay_event_enable": switches lane-control events.
// body: [{"event":"person_stay"|"vehicle_stay","enable":0|1},...];
// {"body":{"applied":n,"refused":m,"person_stay":0|1,"vehicle_stay":0|1}}
#include "virtual_camera/device/device.h"
#include "virtual_camera/device/request_error.h"
#include "virtual_camera/services/services.h"

namespace virtual_camera {

namespace {

class StayEvents : public JsonService {
 public:
  explicit StayEvents(Device& device) : device_(device) {}

 protected:
  std::string Handle(const std::string& type, const Json::Value& request) override {
    if (type != "stay_event_enable") {
      RefuseType(type);
    }
    if (!request["body"].isArray()) {
      throw RequestError("the body is not an array");
    }
    const LaneControl::Switched switched = device_.lane_control.Switch(request["body"]);
    Json::Value body;
    body["applied"] = switched.applied;
    body["refused"] = switched.refused;
    body["person_stay"] = device_.lane_control.IsOn(LaneControl::Kind::kPerson) ? 1 : 0;
    body["vehicle_stay"] = device_.lane_control.IsOn(LaneControl::Kind::kVehicle) ? 1 : 0;
    return Accepted(body);
  }

 private:
  Device& device_;
};

}  // namespace

std::unique_ptr<Service> CreateStayEvents(Device& device) {
  return std::make_unique<StayEvents>(device);
}

}  // namespace virtual_camera
