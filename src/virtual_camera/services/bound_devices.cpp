// Queue "user_get_mate_info": the devices that are bound to this camera.
// {"body":{"devices":[{"sn","name","type","ip","online"},...]}}
#include "virtual_camera/device/device.h"
#include "virtual_camera/services/services.h"

namespace virtual_camera {

namespace {

class BoundDevices : public JsonService {
 public:
  explicit BoundDevices(Device& device) : device_(device) {}

 protected:
  std::string Handle(const std::string& type, const Json::Value&) override {
    if (type != "user_get_mate_info") {
      RefuseType(type);
    }
    Json::Value body;
    body["devices"] = device_.companions.Bound();
    return Accepted(body);
  }

 private:
  Device& device_;
};

}  // namespace

std::unique_ptr<Service> CreateBoundDevices(Device& device) {
  return std::make_unique<BoundDevices>(device);
}

}  // namespace virtual_camera
