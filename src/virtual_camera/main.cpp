// virtual_camera: runs one camera until SIGINT or SIGTERM.
#include <csignal>
#include <cstdio>
#include <exception>
#include <optional>

#include <boost/asio/signal_set.hpp>

#include "virtual_camera/camera.h"
#include "virtual_camera/options.h"

namespace {

void SayReady() {
  (void)std::puts("virtual_camera ready");
  (void)std::fflush(stdout);
}

int RunCamera(const virtual_camera::CameraOptions& options) {
  virtual_camera::Camera camera(options, SayReady);
  boost::asio::signal_set signals(camera.context(), SIGINT, SIGTERM);
  signals.async_wait([&camera](const boost::system::error_code&, int) { camera.Stop(); });
  camera.Run();
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  virtual_camera::CameraOptions options;
  if (const std::optional<int> exit_status = virtual_camera::ParseOptions(argc, argv, &options)) {
    return *exit_status;
  }
  try {
    return RunCamera(options);
  } catch (const std::exception& error) {
    (void)std::fprintf(stderr, "virtual_camera: %s\n", error.what());
    return 1;
  }
}
