// A request to the virtual camera: to one of its services, or of camera_ctl. The input: the queue,
// a line, and the request's bytes. A camera takes a thousand of them, each on what the ones before
// have left; an input that fails on a new camera only together with others is rare.
#include <memory>

#include "desk_camera.h"
#include "fuzz_check.h"
#include "virtual_camera/control.h"

namespace virtual_camera {
namespace {

using fuzz::Check;

constexpr int kOfOneCamera = 1000;
constexpr std::size_t kRecord_bytes = 552;
constexpr std::size_t kStoredRecord_bytes = 556;

class AnyCamera : public DeskCamera {
 public:
  void TestBody() override {}

  void Request(const std::string& queue, const std::string& request) {
    if (services.count(queue) != 0) {
      CheckAnswer(queue, request, Ask(queue, request));
    } else {
      Command(request);
    }
    timeline.Advance(10000);
    for (const auto& [topic, body] : std::exchange(bus.heard, {})) {
      CheckAnnounced(topic, body);
    }
    key_values.written.clear();
    lines.wire.clear();
  }

  /// Whether it may be asked once more: what it stores and remembers takes room.
  bool IsFresh() { return ++requests_ < kOfOneCamera; }

 private:
  static Json::Value Document(const std::string& text) {
    Json::Value document;
    Check(Json::String2Json(text, document) && document.isObject(), "an answer is JSON: " + text);
    return document;
  }

  void CheckAnswer(const std::string& queue, const std::string& request,
                   const std::string& answer) {
    Json::Value read;
    const bool is_json = Json::String2Json(request, read) && read.isObject();
    const std::string type = is_json && read["type"].isString() ? read["type"].asString() : "";
    if (queue == "BUS_GET_IVS_INFO" && answer.empty()) {
      return;  // no record
    }
    if (type == "get_last_ivs" && answer.size() == kRecord_bytes) {
      return;
    }
    if (type == "STP_SELECT_MQTT_OFFLINE_RECORD" && answer.front() != '{') {
      Check(answer.size() % kStoredRecord_bytes == 0, "whole records");
      return;
    }
    const Json::Value document = Document(answer);
    Check(document["state_code"] == 200 ? document.isMember("body") : document["error"].isString(),
          "an answer has what it is for, or why not: " + answer);
  }

  void Command(const std::string& command) {
    int replies = 0;
    Control control(*device, modes_, [] { return Json::Value("connected"); });
    control.Handle(command, [&replies](const std::string& answer) {
      ++replies;
      Check(Document(answer)["ok"].isBool(), "a command's answer says whether it was done");
    });
    timeline.Advance(0);
    Check(replies == 1, "a command is answered once");
  }

  static void CheckAnnounced(const std::string& topic, const std::string& body) {
    if (topic == "BUS_SRV_IVS_RESULT") {
      Check(body.size() == kRecord_bytes, "a result is a record");
    } else {
      Document(body);
    }
  }

  ServiceModes modes_{{"EVS_BUS_REQUEST", "BUS_GET_IVS_INFO"}};
  int requests_ = 0;
};

}  // namespace
}  // namespace virtual_camera

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static std::unique_ptr<virtual_camera::AnyCamera> camera;
  if (!camera || !camera->IsFresh()) {
    camera.reset();
    camera = std::make_unique<virtual_camera::AnyCamera>();
  }
  std::string input(reinterpret_cast<const char*>(data), size);
  const std::string queue = fuzz::TakeUpTo('\n', &input);
  try {
    camera->Request(queue, input);
  } catch (const std::exception& thrown) {
    fuzz::Check(false, std::string("nothing is thrown: ") + thrown.what());
  }
  return 0;
}
