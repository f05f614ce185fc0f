// What happens when a car passes: it is drawn, stored and announced, and the gate is set.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include <json/value.h>

#include "platform/trace.h"
#include "virtual_camera/device/camera_clock.h"
#include "virtual_camera/device/gpio.h"
#include "virtual_camera/device/pan_tilt.h"
#include "virtual_camera/device/white_list.h"
#include "virtual_camera/store/result_store.h"
#include "virtual_camera/surroundings/announcer.h"
#include "virtual_camera/surroundings/timeline.h"
#include "virtual_camera/world/car.h"
#include "virtual_camera/world/picture_files.h"
#include "virtual_camera/world/scene.h"

namespace virtual_camera {

/// What caused a recognition, as a result carries it.
enum class Trigger : uint32_t { kVideo = 1, kSoftware = 4 };

/// The parts of the camera that recognition works with. All must outlive it.
struct RecognitionParts {
  Timeline& timeline;
  Announcer& announcer;
  CameraClock& clock;
  ResultStore& results;
  PictureFiles& pictures;
  Scene& scene;
  PanTilt& pan_tilt;
  WhiteList& white_list;
  Gpio& gpio;
  const tarvex::Trace* trace;  ///< null: nothing is told
};

/// Used on the camera's thread. A result is announced when it is stored, and stored when
/// its pictures are on the disk. What cannot be stored is counted as lost.
class Recognition {
 public:
  Recognition(const RecognitionParts& parts, uint32_t seed, const std::string& snapshot_directory);

  /// Has a car pass, a random one when no plate is given. Throws RequestError for a
  /// plate that does not fit, std::runtime_error when the result cannot be stored; it is
  /// not announced then.
  /// @return the record that was stored and announced.
  IvsRecord CarPasses(Trigger trigger, const std::optional<std::string>& plate);

  /// Stores and announces a record that another camera has recognised. It keeps its
  /// plate id where that is higher than all before and below 2^31, and gets the next one
  /// otherwise. Throws as CarPasses.
  /// @param record of 552 bytes.
  /// @return the plate id.
  uint32_t Replay(const std::string& record);

  /// Draws the scene as it is now.
  /// @return the path of the JPEG; the latest 20 are kept, until the next start.
  std::string Snapshot();

  /// The same as a JPEG's bytes, no wider than 1280 pixels, kept nowhere.
  std::string SceneNow() const;

  Json::Value State() const;

 private:
  IvsRecord RecordOf(const Car& car, uint32_t id, Trigger trigger, const CalendarTime& now);
  void StoreAndAnnounce(uint32_t id, const std::string& record, int64_t picture_bytes);
  void CheckAtGate(const std::string& plate);
  View ViewAt(const CalendarTime& now, const std::string& extra) const;
  View PresentView() const;

  RecognitionParts parts_;
  Traffic traffic_;
  const std::string snapshot_directory_;
  std::optional<Car> last_car_;
  int64_t last_car_ms_ = 0;
  int64_t last_loss_logged_ms_ = -1000000;  // before any time of the timeline
  int64_t loss_not_logged_ = 0;
  uint32_t snapshots_ = 0;
  int64_t lost_ = 0;  // passed, but not stored because the disk failed
  int64_t recognised_ = 0;
  int64_t replayed_ = 0;
  int64_t renumbered_ = 0;
  int64_t opened_ = 0;
  int64_t blocked_ = 0;
};

}  // namespace virtual_camera
