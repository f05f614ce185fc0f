#include "virtual_camera/device.h"

#include "virtual_camera/log.h"

namespace virtual_camera {

namespace {

constexpr int64_t kSecond_us = 1000000;

Json::Value ResultState(Device& device) {
  const ResultStore::Totals& totals = device.results.totals();
  Json::Value state = device.recognition.State();
  state["stored"] = static_cast<Json::Int64>(totals.results);
  state["undelivered"] = static_cast<Json::Int64>(totals.undelivered);
  state["oldest_undelivered_age_s"] = static_cast<Json::Int64>(device.OldestUndeliveredAge());
  state["undelivered_removed"] = static_cast<Json::Int64>(totals.undelivered_removed);
  state["picture_bytes"] = static_cast<Json::Int64>(totals.picture_bytes);
  return state;
}

}  // namespace

Device::Device(const DeviceOptions& options, Timeline& clockwork, Announcer& bus,
               KeyValueStore& store)
    : timeline(clockwork),
      announcer(bus),
      directory(options.data),
      database(directory.Under("camera.db")),
      settings(database),
      clock(timeline, settings),
      results(database, options.retention),
      pictures(directory.Under("pictures")),
      scene(options.pictures),
      pan_tilt(timeline),
      gpio(timeline, announcer),
      white_list(database, settings),
      recognition(
          {timeline, announcer, clock, results, pictures, scene, pan_tilt, white_list, gpio},
          options.seed, directory.Under("snapshots")),
      identity(settings, store, announcer, options.identity) {
  const int orphans =
      pictures.RemoveOrphans([this](uint32_t id) { return results.Find(id).has_value(); });
  if (orphans > 0) {
    CAMERA_LOG(kLogInfo, "%d pictures without a result removed", orphans);
  }
}

int64_t Device::OldestUndeliveredAge() {
  return results.OldestUndeliveredAge(timeline.SystemUs() / kSecond_us);
}

Json::Value Device::State() {
  Json::Value state;
  state["name"] = identity.Name();
  state["ip"] = identity.ip();
  state["data"] = directory.path();
  state["clock"]["offset_s"] = static_cast<Json::Int64>(clock.offset_us() / kSecond_us);
  state["clock"]["local"] = clock.NowText();
  state["results"] = ResultState(*this);
  state["gpio"] = gpio.State();
  state["head"] = pan_tilt.State();
  state["white_list"]["plates"] = static_cast<Json::Int64>(white_list.Count());
  state["white_list"]["filter_enable"] = static_cast<int>(white_list.check());
  state["announced"] = announcer.State();
  return state;
}

}  // namespace virtual_camera
