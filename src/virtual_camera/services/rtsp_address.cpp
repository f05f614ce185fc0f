// Queue "user_get_rtsp_info": where a device's stream is.
// body.sn: this camera's or a bound device's; {"body":{"sn":...,"rtsp_url":...}}
#include "virtual_camera/device/device.h"
#include "virtual_camera/services/services.h"

namespace virtual_camera {

namespace {

class RtspAddress : public JsonService {
 public:
  explicit RtspAddress(Device& device) : device_(device) {}

 protected:
  std::string Handle(const std::string& type, const Json::Value& request) override {
    if (type != "user_get_rtsp_info") {
      RefuseType(type);
    }
    Json::Value body;
    body["sn"] = RequiredText(request["body"], "sn");
    body["rtsp_url"] = device_.companions.RtspUrl(body["sn"].asString(), device_.identity.ip());
    return Accepted(body);
  }

 private:
  Device& device_;
};

}  // namespace

std::unique_ptr<Service> CreateRtspAddress(Device& device) {
  return std::make_unique<RtspAddress>(device);
}

}  // namespace virtual_camera
