// Queue "AD_HTTP_REQUESTION", module "AD_CONFIG_REQUESTION": voice prompts and display.
//
// get_ad_voice_config  {"body":the whole record}
// set_ad_voice_config  body: the whole record; {"body":{}}
#include "virtual_camera/device/device.h"
#include "virtual_camera/device/request_error.h"
#include "virtual_camera/services/services.h"

namespace virtual_camera {

namespace {

class VoiceDisplaySettings : public JsonService {
 public:
  explicit VoiceDisplaySettings(Device& device) : device_(device) {}

 protected:
  std::string Handle(const std::string& type, const Json::Value& request) override {
    if (RequiredText(request, "module") != "AD_CONFIG_REQUESTION") {
      throw RequestError("the settings are in module AD_CONFIG_REQUESTION");
    }
    if (type == "get_ad_voice_config") {
      return Accepted(device_.voice_display.record());
    }
    if (type == "set_ad_voice_config") {
      device_.voice_display.Write(request["body"]);
      return Accepted(Json::Value(Json::objectValue));
    }
    RefuseType(type);
  }

 private:
  Device& device_;
};

}  // namespace

std::unique_ptr<Service> CreateVoiceDisplaySettings(Device& device) {
  return std::make_unique<VoiceDisplaySettings>(device);
}

}  // namespace virtual_camera
