// Queue "EVS_GPIO_CONTROL": sets an output. The request is 12 bytes: output, value and
// delay, 32 bits each; value 0 or 1 holds, 2 pulses for "delay" milliseconds.
#include "virtual_camera/device/device.h"
#include "virtual_camera/device/request_error.h"
#include "virtual_camera/services/services.h"

namespace virtual_camera {

namespace {

constexpr size_t kRequestSize = 12;
constexpr int32_t kPulse = 2;

class GpioControl : public RecordService {
 public:
  explicit GpioControl(Device& device) : device_(device) {}

 protected:
  std::string Handle(const std::string& request) override {
    if (request.size() != kRequestSize) {
      throw RequestError("an output is set with 12 bytes");
    }
    const int32_t output = Int32At(request, 0);
    const int32_t value = Int32At(request, 4);
    if (value == kPulse) {
      device_.gpio.Pulse(output, Int32At(request, 8));
    } else {
      device_.gpio.Hold(output, value);
    }
    Json::Value body;
    body["gpio_out_status"] = device_.gpio.Output(output);
    body["source"] = output;
    return Accepted(body);
  }

 private:
  Device& device_;
};

}  // namespace

std::unique_ptr<Service> CreateGpioControl(Device& device) {
  return std::make_unique<GpioControl>(device);
}

}  // namespace virtual_camera
