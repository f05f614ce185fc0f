// camera_ctl: triggers events in a running virtual camera, and shows its state.
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <optional>
#include <string>

#include <json/value.h>

#include "json_text.h"
#include "virtual_camera/ctl/capture_recorder.h"
#include "virtual_camera/ctl/commands.h"
#include "virtual_camera/ctl/ctl_client.h"
#include "virtual_camera/ctl/passport_text.h"

namespace {

volatile std::sig_atomic_t is_interrupted = 0;

void Interrupt(int /*signal*/) { is_interrupted = 1; }

bool IsInterrupted() { return is_interrupted != 0; }

// A recording or a capture ends as its option says, or so.
void EndWithASignal() {
  std::signal(SIGINT, Interrupt);
  std::signal(SIGTERM, Interrupt);
}

int Record(virtual_camera::CtlClient& client, const virtual_camera::CtlRequest& request) {
  EndWithASignal();
  const int64_t written = client.Record(request.record_file, request.record_count, IsInterrupted);
  (void)std::printf("%lld records\n", static_cast<long long>(written));
  return 0;
}

int Capture(const virtual_camera::CtlRequest& request) {
  EndWithASignal();
  virtual_camera::CaptureRecorder recorder(request.capture_file);
  const int64_t written = recorder.Run(request.capture_seconds, IsInterrupted);
  (void)std::printf("%lld events\n", static_cast<long long>(written));
  return 0;
}

int Carry(const virtual_camera::CtlRequest& request) {
  if (!request.capture_file.empty()) {
    return Capture(request);
  }
  virtual_camera::CtlClient client;
  if (!request.record_file.empty()) {
    return Record(client, request);
  }
  if (request.is_trace) {
    const Json::Value answer = client.Passport(request.trace_id);
    const std::string text = request.trace_id.empty()
                                 ? virtual_camera::PassportListText(answer["passports"])
                                 : virtual_camera::PassportText(answer["passport"]);
    (void)std::fputs(text.c_str(), stdout);
    return 0;
  }
  Json::Value answer = client.Send(request.command);
  if (answer.isMember("state")) {
    (void)std::fputs(answer["state"].toStyledString().c_str(), stdout);
    return 0;
  }
  answer.removeMember("ok");
  std::string text;
  Json::Json2String(answer, text);
  (void)std::puts(answer.empty() ? "ok" : text.c_str());
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  virtual_camera::CtlRequest request;
  if (const std::optional<int> exit_status = virtual_camera::ParseCommand(argc, argv, &request)) {
    return *exit_status;
  }
  // Warnings and errors only, unless the environment says otherwise.
  setenv("TARVEX_LOG_LEVEL", "4", 0);
  try {
    return Carry(request);
  } catch (const std::exception& error) {
    (void)std::fprintf(stderr, "camera_ctl: %s\n", error.what());
    return 1;
  }
}
