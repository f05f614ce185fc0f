// Queue "EVS_BUS_REQUEST": external devices.
//
// evs_get_gpioout  body.source: an output; {"body":{"gpio_out_status":0|1,"source":n}}
#include "virtual_camera/device/device.h"
#include "virtual_camera/services/services.h"

namespace virtual_camera {

namespace {

class GpioStatus : public JsonService {
 public:
  explicit GpioStatus(Device& device) : device_(device) {}

 protected:
  std::string Handle(const std::string& type, const Json::Value& request) override {
    if (type != "evs_get_gpioout") {
      RefuseType(type);
    }
    const int output = RequiredInt(request["body"], "source");
    Json::Value body;
    body["gpio_out_status"] = device_.gpio.Output(output);
    body["source"] = output;
    return Accepted(body);
  }

 private:
  Device& device_;
};

}  // namespace

std::unique_ptr<Service> CreateGpioStatus(Device& device) {
  return std::make_unique<GpioStatus>(device);
}

}  // namespace virtual_camera
