// camera_ctl: triggers events in a running virtual camera.
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <string>

#include <json/value.h>
#include <CLI/CLI.hpp>

#include "json_text.h"
#include "virtual_camera/ctl/commands.h"
#include "virtual_camera/ctl/ctl_client.h"

namespace {

volatile std::sig_atomic_t is_interrupted = 0;

void OnSignal(int) { is_interrupted = 1; }

int Carry(const virtual_camera::CtlRequest& request) {
  virtual_camera::CtlClient client;
  if (!request.record_file.empty()) {
    (void)std::signal(SIGINT, OnSignal);
    (void)std::signal(SIGTERM, OnSignal);
    const int64_t written = client.Record(request.record_file, request.record_count,
                                          [] { return is_interrupted != 0; });
    (void)std::printf("%lld records\n", static_cast<long long>(written));
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
  CLI::App app;
  virtual_camera::CtlRequest request;
  virtual_camera::AddCommands(app, request);
  CLI11_PARSE(app, argc, argv);
  // Only what goes wrong is of interest here, unless the person has chosen otherwise.
  setenv("TARVEX_LOG_LEVEL", "4", 0);
  try {
    return Carry(request);
  } catch (const std::exception& error) {
    (void)std::fprintf(stderr, "camera_ctl: %s\n", error.what());
    return 1;
  }
}
