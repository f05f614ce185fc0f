#include "virtual_camera/device/recognition.h"

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <stdexcept>

#include "platform/log.h"
#include "virtual_camera/device/request_error.h"

namespace virtual_camera {

namespace {

constexpr int kGateOutput = 0;
constexpr int64_t kGateOpen_ms = 1000;
// How long after a car has passed a snapshot still shows it.
constexpr int64_t kCarInView_ms = 3000;
constexpr uint32_t kSnapshotsKept = 20;
constexpr uint32_t kMaxReplayedId = 0x7FFFFFFF;
constexpr int64_t kLossLogEvery_ms = 1000;

std::string HexOf(Colour colour) {
  char text[8];
  (void)std::snprintf(text, sizeof(text), "%02X%02X%02X", static_cast<unsigned>(colour.red),
                      static_cast<unsigned>(colour.green), static_cast<unsigned>(colour.blue));
  return text;
}

uint8_t BrightnessOf(Colour colour) {
  return static_cast<uint8_t>((colour.red * 3 + colour.green * 6 + colour.blue) / 10);
}

}  // namespace

Recognition::Recognition(const RecognitionParts& parts, uint32_t seed,
                         const std::string& snapshot_directory)
    : parts_(parts), traffic_(seed), snapshot_directory_(snapshot_directory) {
  std::error_code error;
  std::filesystem::remove_all(snapshot_directory, error);
  std::filesystem::create_directories(snapshot_directory, error);
  if (error) {
    throw std::runtime_error(snapshot_directory + ": " + error.message());
  }
}

IvsRecord Recognition::CarPasses(Trigger trigger, const std::optional<std::string>& plate) {
  if (plate && (plate->empty() || plate->size() > kMaxPlateLength)) {
    throw RequestError("a plate has 1 to 15 bytes");
  }
  const Car car = plate ? traffic_.WithPlate(*plate) : traffic_.Next();
  const CalendarTime now = parts_.clock.Now();
  const uint32_t id = parts_.results.NextId();
  const IvsRecord record = RecordOf(car, id, trigger, now);
  View view = ViewAt(now, "  no. " + std::to_string(id));
  view.car = car;
  try {
    const int64_t full_bytes = parts_.scene.DrawFull(view, record.full_path);
    const int64_t clip_bytes = parts_.scene.DrawClip(car, record.clip_path);
    parts_.pictures.Sync();
    StoreAndAnnounce(id, RecordBytes(record), full_bytes + clip_bytes);
  } catch (...) {
    ++lost_;
    parts_.pictures.Remove(id);
    throw;
  }
  ++recognised_;
  last_car_ = car;
  last_car_ms_ = parts_.timeline.SteadyMs();
  CheckAtGate(car.plate);
  return record;
}

IvsRecord Recognition::RecordOf(const Car& car, uint32_t id, Trigger trigger,
                                const CalendarTime& now) {
  const CarPlace place =
      parts_.scene.PlaceOf(car, parts_.pan_tilt.pan_degrees(), parts_.pan_tilt.tilt_degrees());
  IvsRecord record;
  SetText(record.license, car.plate);
  SetText(record.color_value, HexOf(car.plate_kind->ground));
  record.color_type = car.plate_kind->colour_type;
  record.type = car.plate_kind->type;
  record.confidence = traffic_.Chance(82, 100);
  record.bright = BrightnessOf(car.plate_kind->ground);
  record.direction = car.is_leaving ? 2 : 1;
  record.plate = place.plate;
  record.time_used = traffic_.Chance(12, 48);
  record.sec = now.sec;
  record.usec = now.usec;
  record.trigger_type = static_cast<uint32_t>(trigger);
  record.car_bright = BrightnessOf(car.paint.colour);
  record.car_color = car.paint_code;
  record.plate_id = id;
  record.second = static_cast<uint8_t>(now.second);
  record.minute = static_cast<uint8_t>(now.minute);
  record.hour = static_cast<uint8_t>(now.hour);
  record.day = static_cast<uint8_t>(now.day);
  record.month = static_cast<uint8_t>(now.month);
  record.year = static_cast<uint32_t>(now.year);
  record.plate_true_width =
      static_cast<uint8_t>(std::min(255, place.plate.right - place.plate.left));
  record.plate_distance = static_cast<uint8_t>(3 + 9 * (1 - car.nearness));
  record.car = place.car;
  record.brand = car.brand;
  record.brand_type = car.brand_type;
  record.brand_year = car.brand_year;
  SetText(record.full_path, parts_.pictures.FullPath(id));
  SetText(record.clip_path, parts_.pictures.ClipPath(id));
  return record;
}

uint32_t Recognition::Replay(const std::string& bytes) {
  IvsRecord record = RecordFromBytes(bytes);
  const uint32_t next = parts_.results.NextId();
  if (record.plate_id < next || record.plate_id > kMaxReplayedId) {
    SYS_LOG(kLogWarning, "replayed plate id %u is in use or out of range, becomes %u",
            record.plate_id, next);
    record.plate_id = next;
    ++renumbered_;
  }
  try {
    StoreAndAnnounce(record.plate_id, RecordBytes(record), 0);
  } catch (...) {
    ++lost_;
    throw;
  }
  ++replayed_;
  CheckAtGate(GetText(record.license));
  return record.plate_id;
}

void Recognition::StoreAndAnnounce(uint32_t id, const std::string& record, int64_t picture_bytes) {
  const ResultStore::Inserted inserted =
      parts_.results.Insert(id, record, picture_bytes, parts_.timeline.SystemUs() / 1000000);
  if (parts_.trace != nullptr) {
    Json::Value event;
    event["plate_id"] = id;
    parts_.trace->Tell("stored", event);
  }
  parts_.announcer.Announce(kResultTopic, record);
  for (const uint32_t removed : inserted.removed) {
    parts_.pictures.Remove(removed);
  }
  loss_not_logged_ += inserted.undelivered_removed;
  const int64_t now_ms = parts_.timeline.SteadyMs();
  if (loss_not_logged_ > 0 && now_ms - last_loss_logged_ms_ >= kLossLogEvery_ms) {
    SYS_LOG(kLogWarning,
            "the store is full of undelivered results: %lld of them removed undelivered, %lld "
            "in all",
            static_cast<long long>(loss_not_logged_),
            static_cast<long long>(parts_.results.totals().undelivered_removed));
    loss_not_logged_ = 0;
    last_loss_logged_ms_ = now_ms;
  }
}

void Recognition::CheckAtGate(const std::string& plate) try {
  const WhiteList::Check check = parts_.white_list.check();
  if (check == WhiteList::Check::kOff) {
    return;
  }
  if (parts_.white_list.Contains(plate)) {
    ++opened_;
    parts_.gpio.Pulse(kGateOutput, kGateOpen_ms);
  } else if (check == WhiteList::Check::kBlockUnlisted) {
    // Ends the pulse of the car before, which would let this one through too.
    ++blocked_;
    parts_.gpio.Hold(kGateOutput, 0);
  }
} catch (const std::exception& error) {
  // The result is stored and announced all the same.
  SYS_LOG(kLogError, "the gate stays as it is, the white list cannot be read: %s", error.what());
}

View Recognition::ViewAt(const CalendarTime& now, const std::string& extra) const {
  View view;
  view.pan_degrees = parts_.pan_tilt.pan_degrees();
  view.tilt_degrees = parts_.pan_tilt.tilt_degrees();
  char caption[128];
  (void)std::snprintf(caption, sizeof(caption), "%04d-%02d-%02d %02d:%02d:%02d  pan %.1f tilt %.1f",
                      now.year, now.month, now.day, now.hour, now.minute, now.second,
                      view.pan_degrees, view.tilt_degrees);
  view.caption = caption + extra;
  return view;
}

View Recognition::PresentView() const {
  View view = ViewAt(parts_.clock.Now(), "");
  if (last_car_ && parts_.timeline.SteadyMs() - last_car_ms_ <= kCarInView_ms) {
    view.car = last_car_;
  }
  return view;
}

std::string Recognition::SceneNow() const { return parts_.scene.EncodeFull(PresentView()); }

std::string Recognition::Snapshot() {
  const auto path_of = [this](uint32_t number) {
    return snapshot_directory_ + "/snapshot_" + std::to_string(number) + ".jpg";
  };
  std::string path = path_of(snapshots_);
  parts_.scene.DrawFull(PresentView(), path);
  if (snapshots_ >= kSnapshotsKept) {
    std::error_code ignored;
    std::filesystem::remove(path_of(snapshots_ - kSnapshotsKept), ignored);
  }
  ++snapshots_;
  return path;
}

Json::Value Recognition::State() const {
  Json::Value state;
  state["lost"] = static_cast<Json::Int64>(lost_);
  state["recognised"] = static_cast<Json::Int64>(recognised_);
  state["replayed"] = static_cast<Json::Int64>(replayed_);
  state["replayed_renumbered"] = static_cast<Json::Int64>(renumbered_);
  state["snapshots"] = snapshots_;
  state["gate_opened"] = static_cast<Json::Int64>(opened_);
  state["gate_blocked"] = static_cast<Json::Int64>(blocked_);
  state["last_plate"] = last_car_ ? Json::Value(last_car_->plate) : Json::Value();
  return state;
}

}  // namespace virtual_camera
