// Persons and vehicles that stay in the lane.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include <json/value.h>

#include "virtual_camera/device/camera_clock.h"
#include "virtual_camera/device/identity.h"
#include "virtual_camera/device/pan_tilt.h"
#include "virtual_camera/store/settings.h"
#include "virtual_camera/surroundings/announcer.h"
#include "virtual_camera/world/car.h"
#include "virtual_camera/world/scene.h"

namespace virtual_camera {

/// Announces stays while their kind is switched on. The switches are kept over restarts
/// and off at first. Used on the camera's thread.
class LaneControl {
 public:
  enum class Kind { kPerson = 0, kVehicle = 1 };

  struct Switched {
    int applied = 0;
    int refused = 0;
  };

  struct Parts {
    Announcer& announcer;
    Settings& settings;
    CameraClock& clock;
    Identity& identity;
    Scene& scene;
    PanTilt& pan_tilt;
  };

  /// Throws std::runtime_error when the directory cannot be made.
  /// @param directory of the pictures, each "<image id>.jpg"; the latest 200 are kept.
  LaneControl(const Parts& parts, uint32_t seed, const std::string& directory);

  /// Switches kinds on and off.
  /// @param switches [{"event": "person_stay"|"vehicle_stay", "enable": 0|1}, ...];
  ///                 elements of another form are refused one by one. Throws
  ///                 std::runtime_error, and nothing has changed, when the disk fails.
  Switched Switch(const Json::Value& switches);

  bool IsOn(Kind kind) const { return kind == Kind::kPerson ? person_on_ : vehicle_on_; }

  /// Draws and announces a person or a vehicle that stays in the lane. Throws RequestError
  /// while the kind is off, and for a plate that does not fit.
  /// @param plate of the vehicle; a random one for a vehicle without it.
  /// @return the message.
  Json::Value Stay(Kind kind, const std::optional<std::string>& plate);

  Json::Value State() const;

 private:
  View ViewOf(Kind kind, const std::optional<Car>& car) const;
  CarPlace PlaceOf(const Car& car) const;
  Json::Value Message(Kind kind, const std::optional<Car>& car, int32_t full_id) const;
  Json::Value Result(Kind kind, const std::optional<Car>& car) const;
  int32_t TakeImageIds();
  std::string PathOf(int32_t image_id) const;

  Parts parts_;
  Traffic traffic_;
  const std::string directory_;
  bool person_on_ = false;
  bool vehicle_on_ = false;
  int64_t announced_ = 0;
};

}  // namespace virtual_camera
