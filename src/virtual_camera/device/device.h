// The camera without its connections: all parts of the device.
#pragma once

#include <cstdint>
#include <string>

#include <json/value.h>

#include "platform/trace.h"
#include "virtual_camera/device/camera_clock.h"
#include "virtual_camera/device/companions.h"
#include "virtual_camera/device/gpio.h"
#include "virtual_camera/device/identity.h"
#include "virtual_camera/device/lane_control.h"
#include "virtual_camera/device/pan_tilt.h"
#include "virtual_camera/device/power.h"
#include "virtual_camera/device/recognition.h"
#include "virtual_camera/device/rs485.h"
#include "virtual_camera/device/voice_display.h"
#include "virtual_camera/device/white_list.h"
#include "virtual_camera/store/data_directory.h"
#include "virtual_camera/store/database.h"
#include "virtual_camera/store/result_store.h"
#include "virtual_camera/store/settings.h"
#include "virtual_camera/surroundings/announcer.h"
#include "virtual_camera/surroundings/counting_announcer.h"
#include "virtual_camera/surroundings/key_values.h"
#include "virtual_camera/surroundings/serial_lines.h"
#include "virtual_camera/surroundings/timeline.h"
#include "virtual_camera/world/picture_files.h"
#include "virtual_camera/world/scene.h"

namespace virtual_camera {

struct DeviceOptions {
  std::string data = "virtual-camera-data";
  Retention retention;
  PictureOptions pictures;
  uint32_t seed = 1;
  IdentityDefaults identity;
  std::string serial_number;     ///< by which others ask for this camera
  std::string serial_directory;  ///< of the links to the serial lines; empty: the data's
  double reboot_seconds = 3;
};

/// What the device needs from outside. All must outlive it.
struct Surroundings {
  Timeline& timeline;
  Announcer& bus;
  KeyValueStore& key_values;
  SerialLines& serial_lines;
  const tarvex::Trace* trace = nullptr;  ///< null: nothing is told
};

/// The parts, each after those that it uses; services and commands use them directly. Used
/// on the camera's thread.
struct Device {
  /// Throws std::runtime_error, with one line that says why, when the data directory, the
  /// font or the serial lines cannot be used.
  Device(const DeviceOptions& options, const Surroundings& around);

  Device(const Device&) = delete;
  Device& operator=(const Device&) = delete;

  /// Seconds; 0 when nothing is undelivered.
  int64_t OldestUndeliveredAge();

  /// What "camera_ctl state" shows of the device.
  Json::Value State();

  Timeline& timeline;
  const tarvex::Trace* const trace;
  CountingAnnouncer announcer;
  DataDirectory directory;
  Database database;
  Settings settings;
  Power power;
  CameraClock clock;
  ResultStore results;
  PictureFiles pictures;
  Scene scene;
  PanTilt pan_tilt;
  Gpio gpio;
  WhiteList white_list;
  Recognition recognition;
  Identity identity;
  LaneControl lane_control;
  Rs485 rs485;
  VoiceDisplay voice_display;
  Companions companions;
};

}  // namespace virtual_camera
