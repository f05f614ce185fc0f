// The commands that camera_ctl sends.
#pragma once

#include <functional>
#include <string>

#include <json/value.h>

#include "virtual_camera/device/device.h"
#include "virtual_camera/services/service_modes.h"

namespace virtual_camera {

/// The queue on which commands arrive. Unlike the services' it is served during a reboot,
/// and no command switches it off.
constexpr char kControlQueue[] = "CAMERA_CTL";

/// Carries out {"command": name, ...}; the answer is {"ok": true, ...} or {"ok": false,
/// "error": reason}. Used on the camera's thread.
class Control {
 public:
  using Reply = std::function<void(const std::string& answer)>;

  /// All must outlive this.
  /// @param connection_state what the state says of the connections.
  Control(Device& device, ServiceModes& modes, std::function<Json::Value()> connection_state);

  /// @param reply called exactly once, perhaps later; lets no exception out.
  void Handle(const std::string& command, const Reply& reply);

 private:
  struct Row;
  static const Row* Find(const std::string& name);

  void Car(const Json::Value& command, const Reply& reply);
  void Lane(const Json::Value& command, const Reply& reply);
  void GpioIn(const Json::Value& command, const Reply& reply);
  void Serial(const Json::Value& command, const Reply& reply);
  void Rename(const Json::Value& command, const Reply& reply);
  void Readdress(const Json::Value& command, const Reply& reply);
  void SetService(const Json::Value& command, const Reply& reply);
  void State(const Json::Value& command, const Reply& reply);
  void Scene(const Json::Value& command, const Reply& reply);
  void WhiteList(const Json::Value& command, const Reply& reply);
  void Record(const Json::Value& command, const Reply& reply);

  void RequireUp() const;

  Device& device_;
  ServiceModes& modes_;
  std::function<Json::Value()> connection_state_;
};

}  // namespace virtual_camera
