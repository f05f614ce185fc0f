// Queue "BUS_REQUEST_MESSAGE": the head.
//
// set_cloud_ctrl  body.dir: 2 left, 4 right, 8 stop; 16 up, 32 down, 64 stop; body.degree:
//                 the speed in steps of 10 degrees per second. {"body":{"pan":p,"tilt":t}}
#include "virtual_camera/device/device.h"
#include "virtual_camera/device/request_error.h"
#include "virtual_camera/services/services.h"

namespace virtual_camera {

namespace {

class PanTiltControl : public JsonService {
 public:
  explicit PanTiltControl(Device& device) : device_(device) {}

 protected:
  std::string Handle(const std::string& type, const Json::Value& request) override {
    if (type != "set_cloud_ctrl") {
      RefuseType(type);
    }
    if (RequiredText(request, "module") != "BUS_REQUEST_MESSAGE") {
      throw RequestError("the head is in module BUS_REQUEST_MESSAGE");
    }
    device_.pan_tilt.Control(RequiredInt(request["body"], "dir"),
                             RequiredInt(request["body"], "degree"));
    Json::Value body;
    body["pan"] = device_.pan_tilt.pan_degrees();
    body["tilt"] = device_.pan_tilt.tilt_degrees();
    return Accepted(body);
  }

 private:
  Device& device_;
};

}  // namespace

std::unique_ptr<Service> CreatePanTiltControl(Device& device) {
  return std::make_unique<PanTiltControl>(device);
}

}  // namespace virtual_camera
