// Queue "ALG_REQUEST_MESSAGE": the recognition.
//
// AVS_TRIGGER          a car passes now; {"body":{"plate_id":n}}
// AV_SRV_GET_SNAPSHOT  {"body":{"img_path":path}} of a picture of the scene now
#include "virtual_camera/device/device.h"
#include "virtual_camera/services/services.h"

namespace virtual_camera {

namespace {

class RecognitionControl : public JsonService {
 public:
  explicit RecognitionControl(Device& device) : device_(device) {}

 protected:
  std::string Handle(const std::string& type, const Json::Value&) override {
    Json::Value body;
    if (type == "AVS_TRIGGER") {
      body["plate_id"] = device_.recognition.CarPasses(Trigger::kSoftware, std::nullopt).plate_id;
      return Accepted(body);
    }
    if (type == "AV_SRV_GET_SNAPSHOT") {
      body["img_path"] = device_.recognition.Snapshot();
      return Accepted(body);
    }
    RefuseType(type);
  }

 private:
  Device& device_;
};

}  // namespace

std::unique_ptr<Service> CreateRecognitionControl(Device& device) {
  return std::make_unique<RecognitionControl>(device);
}

}  // namespace virtual_camera
