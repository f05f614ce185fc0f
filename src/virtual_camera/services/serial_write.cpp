// Queue "EVS_RS485_WRITE": output on a serial channel. The request is the number 111 and
// the channel, 32 bits each, then 1 to 1016 bytes for the wire. {"body":{"written":n}}
#include "virtual_camera/device/device.h"
#include "virtual_camera/device/request_error.h"
#include "virtual_camera/services/services.h"

namespace virtual_camera {

namespace {

constexpr size_t kHeaderSize = 8;
constexpr size_t kMaxRequest = 1024;
constexpr int32_t kHeaderWord = 111;

class SerialWrite : public RecordService {
 public:
  explicit SerialWrite(Device& device) : device_(device) {}

 protected:
  std::string Handle(const std::string& request) override {
    if (request.size() <= kHeaderSize || request.size() > kMaxRequest) {
      throw RequestError("a serial packet has 9 to 1024 bytes");
    }
    if (Int32At(request, 0) != kHeaderWord) {
      throw RequestError("a serial packet begins with the number 111");
    }
    Json::Value body;
    body["written"] = static_cast<Json::UInt>(
        device_.rs485.Write(Int32At(request, 4), request.substr(kHeaderSize)));
    return Accepted(body);
  }

 private:
  Device& device_;
};

}  // namespace

std::unique_ptr<Service> CreateSerialWrite(Device& device) {
  return std::make_unique<SerialWrite>(device);
}

}  // namespace virtual_camera
