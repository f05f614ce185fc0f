// Queue "SS_BUS_REQUEST": clock and power.
//
// ss_set_timing  body.datetime: local time, "%4d-%2d-%2d %2d:%2d:%2d" with blanks or zeros;
//                {"body":{"datetime":the clock's time now}}. A day that the calendar does
//                not have is refused.
// reboot_dev     answers {"body":{}}, then serves nothing for the time of --reboot-seconds
#include "virtual_camera/device/device.h"
#include "virtual_camera/services/services.h"

namespace virtual_camera {

namespace {

class System : public JsonService {
 public:
  explicit System(Device& device) : device_(device) {}

 protected:
  std::string Handle(const std::string& type, const Json::Value& request) override {
    Json::Value body(Json::objectValue);
    if (type == "ss_set_timing") {
      device_.clock.SetLocal(RequiredText(request["body"], "datetime"));
      body["datetime"] = device_.clock.NowText();
      return Accepted(body);
    }
    if (type == "reboot_dev") {
      device_.power.Reboot();
      return Accepted(body);
    }
    RefuseType(type);
  }

 private:
  Device& device_;
};

}  // namespace

std::unique_ptr<Service> CreateSystem(Device& device) { return std::make_unique<System>(device); }

}  // namespace virtual_camera
