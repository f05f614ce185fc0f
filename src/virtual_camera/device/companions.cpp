#include "virtual_camera/device/companions.h"

#include <algorithm>

#include "virtual_camera/device/request_error.h"

namespace virtual_camera {

namespace {

constexpr char kBoundSetting[] = "bound_devices";

Json::Value BoundDevice(const char* sn, const char* name, const char* type, const char* ip) {
  Json::Value device;
  device["sn"] = sn;
  device["name"] = name;
  device["type"] = type;
  device["ip"] = ip;
  device["online"] = 1;
  return device;
}

Json::Value DefaultBound() {
  Json::Value bound(Json::arrayValue);
  bound.append(BoundDevice("VCMATE0001", "Exit camera", "camera", "192.168.1.101"));
  bound.append(BoundDevice("VCMATE0002", "Gate display", "display", "192.168.1.110"));
  return bound;
}

std::string Url(const std::string& ip) { return "rtsp://" + ip + ":554/live/main"; }

}  // namespace

Companions::Companions(Settings& settings, const std::string& serial_number)
    : serial_number_(serial_number), bound_(settings.JsonValue(kBoundSetting, Json::Value())) {
  if (!bound_.isArray()) {
    bound_ = DefaultBound();
    settings.SetJson(kBoundSetting, bound_);
  }
}

bool Companions::IsKnown(const std::string& sn) const {
  return sn == serial_number_ ||
         std::any_of(bound_.begin(), bound_.end(),
                     [&sn](const Json::Value& device) { return device["sn"] == sn; });
}

std::string Companions::RtspUrl(const std::string& sn, const std::string& own_ip) const {
  for (const Json::Value& device : bound_) {
    if (device["sn"] == sn) {
      return Url(device["ip"].asString());
    }
  }
  if (!IsKnown(sn)) {
    throw RequestError("no device with the serial number \"" + sn + "\"");
  }
  return Url(own_ip);
}

int Companions::OpenTalkback(const std::string& sn, int window_size) {
  if (!IsKnown(sn)) {
    throw RequestError("no device with the serial number \"" + sn + "\"");
  }
  if (window_size < 1 || window_size > kMaxWindow) {
    throw RequestError("a window is 1 to 65536 packets");
  }
  for (Session& session : sessions_) {
    if (session.sn == sn) {
      session.window_size = window_size;
      return session.port;
    }
  }
  if (sessions_.size() == kMaxSessions) {
    sessions_.pop_front();
  }
  sessions_.push_back({sn, FreePort(), window_size});
  return sessions_.back().port;
}

int Companions::FreePort() const {
  int port = kFirstPort;
  while (std::any_of(sessions_.begin(), sessions_.end(),
                     [port](const Session& session) { return session.port == port; })) {
    ++port;
  }
  return port;
}

Json::Value Companions::TalkbackState() const {
  Json::Value state(Json::arrayValue);
  for (const Session& session : sessions_) {
    Json::Value one;
    one["sn"] = session.sn;
    one["port"] = session.port;
    one["window_size"] = session.window_size;
    state.append(one);
  }
  return state;
}

}  // namespace virtual_camera
