#include "virtual_camera/options.h"

#include <CLI/CLI.hpp>

#include "chw_info.h"

namespace virtual_camera {

namespace {

constexpr char kAbout[] =
    "A licence-plate camera for the desk: cars pass, plates are recognised, stored and announced "
    "on the device bus, and the device's services answer. camera_ctl triggers events in it.\n"
    "The bus is at 127.0.0.1:6101 and the key-value databases at 127.0.0.1:6102, unless "
    "TARVEX_BUS_ADDRESS and TARVEX_KV_ADDRESS say otherwise; one camera at a time "
    "serves a bus, and TARVEX_SUBJECT_PREFIX lets several share a server.";

void AddTraffic(CLI::App& app, CameraOptions& options) {
  app.add_option("--cars-per-minute", options.cars_per_minute,
                 "How many cars pass by themselves; may be a fraction")
      ->capture_default_str()
      ->check(CLI::Range(0.0, 600000.0))
      ->group("Traffic");
  app.add_option("--seed", options.device.seed, "The same seed gives the same cars")
      ->capture_default_str()
      ->group("Traffic");
  app.add_option(
         "--replay", options.replay_file,
         "Stores and announces the 552-byte records of this file, besides the cars. A record keeps "
         "its plate id if that is higher than all in the store, and gets the next one "
         "otherwise")
      ->group("Traffic");
  app.add_option("--replay-rate", options.replay_per_second, "Replayed records per second")
      ->capture_default_str()
      ->check(CLI::Range(0.001, 10000.0))
      ->group("Traffic");
}

void AddPictures(CLI::App& app, PictureOptions& pictures) {
  app.add_option("--picture-width", pictures.width,
                 "Width of the full picture in pixels; small ones are drawn faster")
      ->capture_default_str()
      ->check(CLI::Range(64, 3840))
      ->group("Pictures");
  app.add_option("--picture-quality", pictures.quality, "Quality of the JPEGs")
      ->capture_default_str()
      ->check(CLI::Range(1, 95))
      ->group("Pictures");
}

void AddStore(CLI::App& app, DeviceOptions& device) {
  app.add_option("--data", device.data, "Directory of everything that the camera keeps")
      ->capture_default_str()
      ->group("Store");
  app.add_option("--keep-results", device.retention.results,
                 "Results kept; beyond it the oldest delivered go first, undelivered ones last")
      ->capture_default_str()
      ->check(CLI::Range(int64_t{1}, int64_t{100000000}))
      ->group("Store");
  app.add_option("--keep-picture-bytes", device.retention.picture_bytes,
                 "Bytes of pictures kept, likewise")
      ->capture_default_str()
      ->check(CLI::Range(int64_t{1}, int64_t{1} << 50))
      ->group("Store");
}

void AddIdentity(CLI::App& app, DeviceOptions& device) {
  IdentityDefaults& identity = device.identity;
  device.serial_number = hw_sn();
  app.add_option("--name", identity.name, "Name of a camera that has not been given one yet")
      ->capture_default_str()
      ->group("Identity");
  app.add_option("--ip", identity.ip, "Address of a camera that has not been given one yet")
      ->capture_default_str()
      ->check(CLI::ValidIPV4)
      ->group("Identity");
  app.add_option("--user-data", identity.user_data,
                 "The opaque user data of a camera that has none yet")
      ->capture_default_str()
      ->group("Identity");
  app.add_option("--serial-number", device.serial_number,
                 "Serial number by which others ask for this camera's stream")
      ->capture_default_str()
      ->group("Identity");
}

void AddBehaviour(CLI::App& app, DeviceOptions& device, bool& trace) {
  app.add_option("--serial-dir", device.serial_directory,
                 "Where the links rs485-0 and rs485-1 to the serial lines are made; the data "
                 "directory by default")
      ->check(CLI::ExistingDirectory)
      ->group("Behaviour");
  app.add_option("--reboot-seconds", device.reboot_seconds, "How long a reboot takes")
      ->capture_default_str()
      ->check(CLI::Range(0.0, 3600.0))
      ->group("Behaviour");
  app.add_flag("--trace", trace,
               "Tells on the bus topic TRACE_MESSAGES what becomes of each result and message")
      ->group("Behaviour");
}

}  // namespace

std::optional<int> ParseOptions(int argc, const char* const* argv, CameraOptions* options) {
  CLI::App app;
  app.description(kAbout);
  AddTraffic(app, *options);
  AddPictures(app, options->device.pictures);
  AddStore(app, options->device);
  AddIdentity(app, options->device);
  AddBehaviour(app, options->device, options->trace);
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& failure) {
    return app.exit(failure);
  }
  return std::nullopt;
}

}  // namespace virtual_camera
