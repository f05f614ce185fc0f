// Queue "user_request_talkback": opens a talk-back channel.
// body.sn: this camera's or a bound device's; body.window_size: packets, 1 to 65536;
// {"body":{"sn":...,"port":n,"window_size":n}}. Asking again changes the window.
#include "virtual_camera/device/device.h"
#include "virtual_camera/services/services.h"

namespace virtual_camera {

namespace {

class Talkback : public JsonService {
 public:
  explicit Talkback(Device& device) : device_(device) {}

 protected:
  std::string Handle(const std::string& type, const Json::Value& request) override {
    if (type != "user_request_talkback") {
      RefuseType(type);
    }
    const std::string sn = RequiredText(request["body"], "sn");
    const int window_size = RequiredInt(request["body"], "window_size");
    Json::Value body;
    body["port"] = device_.companions.OpenTalkback(sn, window_size);
    body["sn"] = sn;
    body["window_size"] = window_size;
    return Accepted(body);
  }

 private:
  Device& device_;
};

}  // namespace

std::unique_ptr<Service> CreateTalkback(Device& device) {
  return std::make_unique<Talkback>(device);
}

}  // namespace virtual_camera
