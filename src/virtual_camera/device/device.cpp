#include "virtual_camera/device/device.h"

#include "platform/log.h"

namespace virtual_camera {

namespace {

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

Device::Device(const DeviceOptions& options, const Surroundings& around)
    : timeline(around.timeline),
      trace(around.trace),
      announcer(around.bus, trace),
      directory(options.data),
      database(directory.Under("camera.db")),
      settings(database),
      power(timeline, static_cast<int64_t>(options.reboot_seconds * 1000)),
      clock(timeline, settings),
      results(database, settings, options.retention),
      pictures(directory.Under("pictures")),
      scene(options.pictures),
      pan_tilt(timeline),
      gpio(timeline, announcer),
      white_list(database, settings),
      recognition(
          {timeline, announcer, clock, results, pictures, scene, pan_tilt, white_list, gpio, trace},
          options.seed, directory.Under("snapshots")),
      identity(settings, around.key_values, announcer, options.identity),
      lane_control({announcer, settings, clock, identity, scene, pan_tilt}, options.seed,
                   directory.Under("lane")),
      rs485(around.serial_lines,
            options.serial_directory.empty() ? directory.path() : options.serial_directory,
            announcer, [this] { return power.IsUp(); }),
      voice_display(settings),
      companions(settings, options.serial_number) {
  // A reboot keeps all but these.
  power.OnChange([this](bool is_up) {
    if (!is_up) {
      gpio.ResetOutputs();
      pan_tilt.StopAll();
      companions.EndTalkbacks();
    }
  });
  const int orphans =
      pictures.RemoveOrphans([this](uint32_t id) { return results.Find(id).has_value(); });
  if (orphans > 0) {
    SYS_LOG(kLogInfo, "%d pictures without a result removed", orphans);
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
  state["lane_control"] = lane_control.State();
  state["rs485"] = rs485.State();
  state["voice_display"] = voice_display.record();
  state["bound_devices"] = companions.Bound();
  state["talkback"] = companions.TalkbackState();
  state["power"]["is_up"] = power.IsUp();
  state["power"]["reboots"] = static_cast<Json::Int64>(power.reboots());
  state["announced"] = announcer.State();
  return state;
}

}  // namespace virtual_camera
