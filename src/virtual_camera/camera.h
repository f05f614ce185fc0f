// The camera as a process: the device, its connections, and the cars that pass.
#pragma once

#include <functional>
#include <map>
#include <memory>
#include <string>

#include <json/value.h>

#include "platform/asio_event_service.h"
#include "virtual_camera/control.h"
#include "virtual_camera/device/device.h"
#include "virtual_camera/services/service.h"
#include "virtual_camera/services/service_modes.h"
#include "virtual_camera/surroundings/asio_timeline.h"
#include "virtual_camera/surroundings/bus_claim.h"
#include "virtual_camera/surroundings/bus_server.h"
#include "virtual_camera/surroundings/nats_key_values.h"
#include "virtual_camera/surroundings/pty_lines.h"
#include "virtual_camera/world/pace.h"
#include "virtual_camera/world/replay.h"

namespace virtual_camera {

struct CameraOptions {
  DeviceOptions device;
  double cars_per_minute = 0;
  std::string replay_file;  ///< empty: nothing is replayed
  double replay_per_second = 1;
  bool trace = false;
};

/// Everything happens on the thread that is in Run().
class Camera {
 public:
  /// Throws std::runtime_error, with one line that says why, when it cannot begin.
  /// @param on_ready called once, on the camera's thread, when the bus knows every
  ///                 service.
  Camera(const CameraOptions& options, std::function<void()> on_ready);

  /// Returns after Stop(). Throws std::runtime_error, likewise, when another camera serves
  /// the same bus.
  void Run();

  /// Any thread.
  void Stop() { event_service_.Stop(); }

  /// For the program's signal handlers, which run on the camera's thread too.
  boost::asio::io_context& context() { return event_service_.context(); }

 private:
  void OnBusState(bool connected);
  void OnPower(bool is_up);
  void ApplyModes();
  void HandleRequest(const std::string& queue, const std::string& request,
                     const BusServer::Reply& reply);
  void AnswerBy(const std::string& queue, const std::string& request,
                const BusServer::Reply& reply);
  void BeginTraffic();
  void SendCars();
  void SendReplays();
  Json::Value ConnectionState() const;

  tarvex::AsioEventService event_service_;
  AsioTimeline timeline_;
  std::function<void()> on_ready_;
  std::unique_ptr<ReplayFile> replay_;
  ServiceModes modes_;
  NatsKeyValues key_values_;
  BusServer bus_;
  BusClaim claim_;
  PtyLines serial_lines_;
  std::unique_ptr<const tarvex::Trace> trace_;  // null: nothing is told
  Device device_;
  Control control_;
  std::map<std::string, std::unique_ptr<Service>> services_;  // by queue
  bool is_taken_ = false;                                     // the bus, by another camera
  int slow_answers_ = 0;                                      // waiting
  const double cars_per_second_;
  const double replays_per_second_;
  bool is_in_traffic_ = false;
  Pace cars_{0, 0};
  Pace replays_{0, 0};
};

}  // namespace virtual_camera
