#include "virtual_camera/device/lane_control.h"

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <stdexcept>

#include "json_text.h"
#include "virtual_camera/device/request_error.h"
#include "virtual_camera/world/durable_file.h"

namespace virtual_camera {

namespace fs = std::filesystem;

namespace {

constexpr char kPersonSetting[] = "person_stay";
constexpr char kVehicleSetting[] = "vehicle_stay";
constexpr char kImageSetting[] = "lane_image_id";
constexpr int32_t kPicturesKept = 200;
constexpr int32_t kHighestImageId = 2000000000;
// Codes that the message carries.
constexpr int kPersonStays = 128;
constexpr int kVehicleStays = 129;
constexpr int kFullImage = 0;
constexpr int kSmallImage = 1;

}  // namespace

LaneControl::LaneControl(const Parts& parts, uint32_t seed, const std::string& directory)
    : parts_(parts),
      traffic_(seed),
      directory_(directory),
      person_on_(parts.settings.Text(kPersonSetting).value_or("0") == "1"),
      vehicle_on_(parts.settings.Text(kVehicleSetting).value_or("0") == "1") {
  std::error_code error;
  fs::create_directories(directory, error);
  if (error) {
    throw std::runtime_error(directory + ": " + error.message());
  }
}

LaneControl::Switched LaneControl::Switch(const Json::Value& switches) {
  Switched switched;
  std::map<std::string, std::string> wanted;
  for (const Json::Value& one : switches) {
    const bool has_form = one.isObject() && one["event"].isString() && one["enable"].isInt();
    const std::string event = has_form ? one["event"].asString() : "";
    const int enable = has_form ? one["enable"].asInt() : -1;
    if ((event != kPersonSetting && event != kVehicleSetting) || enable < 0 || enable > 1) {
      ++switched.refused;
      continue;
    }
    wanted[event] = std::to_string(enable);
    ++switched.applied;
  }
  parts_.settings.SetTexts(wanted);
  for (const auto& [event, enable] : wanted) {
    (event == kPersonSetting ? person_on_ : vehicle_on_) = enable == "1";
  }
  return switched;
}

std::string LaneControl::PathOf(int32_t image_id) const {
  return directory_ + "/" + std::to_string(image_id) + ".jpg";
}

// Two ids in a row, the first of them odd; stored as used before they are.
int32_t LaneControl::TakeImageIds() {
  const std::string last = parts_.settings.Text(kImageSetting).value_or("0");
  auto id = static_cast<int32_t>(std::strtol(last.c_str(), nullptr, 10));
  id = id < 0 || id >= kHighestImageId ? 0 : id;
  parts_.settings.SetText(kImageSetting, std::to_string(id + 2));
  std::error_code ignored;
  fs::remove(PathOf(id + 1 - kPicturesKept), ignored);
  fs::remove(PathOf(id + 2 - kPicturesKept), ignored);
  return id + 1;
}

Json::Value LaneControl::Stay(Kind kind, const std::optional<std::string>& plate) {
  if (!IsOn(kind)) {
    throw RequestError(kind == Kind::kPerson ? "stay events of persons are off"
                                             : "stay events of vehicles are off");
  }
  if (plate && (plate->empty() || plate->size() > kMaxPlateLength)) {
    throw RequestError("a plate has 1 to 15 bytes");
  }
  std::optional<Car> car;
  if (plate || kind == Kind::kVehicle) {
    car = plate ? traffic_.WithPlate(*plate) : traffic_.Next();
  }
  const View view = ViewOf(kind, car);
  const int32_t full_id = TakeImageIds();
  parts_.scene.DrawFull(view, PathOf(full_id));
  parts_.scene.DrawSmall(view, PathOf(full_id + 1));
  SyncDirectory(directory_);

  Json::Value message = Message(kind, car, full_id);
  std::string text;
  Json::Json2String(message, text);
  parts_.announcer.Announce("BUS_SRV_LANECTRL_RESULT", text);
  ++announced_;
  return message;
}

View LaneControl::ViewOf(Kind kind, const std::optional<Car>& car) const {
  View view;
  view.pan_degrees = parts_.pan_tilt.pan_degrees();
  view.tilt_degrees = parts_.pan_tilt.tilt_degrees();
  view.has_person = kind == Kind::kPerson;
  view.caption = parts_.clock.NowText() + (view.has_person ? "  person" : "  vehicle") + " stays";
  view.car = car;
  return view;
}

CarPlace LaneControl::PlaceOf(const Car& car) const {
  return parts_.scene.PlaceOf(car, parts_.pan_tilt.pan_degrees(), parts_.pan_tilt.tilt_degrees());
}

Json::Value LaneControl::Message(Kind kind, const std::optional<Car>& car, int32_t full_id) const {
  const int rule = kind == Kind::kPerson ? 1 : 2;
  Json::Value message;
  message["cmd"] = "common_alarm_result";
  message["module"] = "TCP_BUS_REQUEST";
  message["type"] = "common_alarm_result";
  message["uid"] = static_cast<Json::UInt>((full_id + 1) / 2);
  Json::Value& device = message["device_info"];
  device["alg_chn"] = 0;
  device["chn_id"] = 0;
  device["dev_ip"] = parts_.identity.ip();
  device["dev_port"] = 80;
  device["rule_id"] = rule;
  const PixelRect where = kind == Kind::kVehicle && car
                              ? PlaceOf(*car).car
                              : parts_.scene.PlaceOfPerson(parts_.pan_tilt.pan_degrees(),
                                                           parts_.pan_tilt.tilt_degrees());
  Json::Value& full = message["full_image"][0];
  full["fe_crop_info"]["left"] = where.left;
  full["fe_crop_info"]["top"] = where.top;
  full["fe_crop_info"]["width"] = where.right - where.left;
  full["fe_crop_info"]["height"] = where.bottom - where.top;
  full["file_name"] = PathOf(full_id);
  full["full_image_id"] = full_id;
  full["image_type"] = kFullImage;
  Json::Value& small = message["small_image"][0];
  small["file_name"] = PathOf(full_id + 1);
  small["small_image_id"] = full_id + 1;
  small["image_type"] = kSmallImage;
  message["results"][0] = Result(kind, car);
  message["results"][0]["result_id"] = rule;
  return message;
}

Json::Value LaneControl::Result(Kind kind, const std::optional<Car>& car) const {
  const CalendarTime now = parts_.clock.Now();
  char time[64];
  // Padded with blanks, as on the device.
  (void)std::snprintf(time, sizeof(time), "%4d-%2d-%2d %2d:%2d:%2d", now.year, now.month, now.day,
                      now.hour, now.minute, now.second);
  Json::Value result;
  result["type"] = "common_alarm_lane_control";
  result["event_type"] = kind == Kind::kPerson ? kPersonStays : kVehicleStays;
  result["time"] = time;
  const char* const stay = kind == Kind::kPerson ? "person_stay_result" : "car_stay_result";
  result["lane_ctrl_prop"][stay]["alarm_state"] = 1;
  if (car) {
    const PixelRect plate = PlaceOf(*car).plate;
    result["plate_result"]["license"] = car->plate;
    result["plate_result"]["color_type"] = car->plate_kind->name;
    result["plate_result"]["type"] = car->plate_kind->kind;
    result["plate_result"]["plate_true_width"] = plate.right - plate.left;
    result["plate_result"]["confidence"] = 95;
  }
  return result;
}

Json::Value LaneControl::State() const {
  Json::Value state;
  state[kPersonSetting] = person_on_ ? 1 : 0;
  state[kVehicleSetting] = vehicle_on_ ? 1 : 0;
  state["announced"] = static_cast<Json::Int64>(announced_);
  return state;
}

}  // namespace virtual_camera
