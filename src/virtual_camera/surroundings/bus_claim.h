// Makes sure that one camera at a time serves a bus.
#pragma once

#include <functional>
#include <string>

#include "virtual_camera/surroundings/announcer.h"
#include "virtual_camera/surroundings/bus_server.h"

namespace virtual_camera {

/// Two cameras that serve the same queues of a bus would each get some of the requests,
/// and confirm each other's plate ids. So a camera asks on a topic of its own, below
/// TARVEX_SUBJECT_PREFIX like all others, before it serves anything; a camera that serves
/// answers. One that has begun to serve publishes its instance on the same topic, and again
/// after each reconnection: of two that began to serve at the same time, the younger one
/// ends. Until the bus is claimed nothing is announced on it. Used on the camera's thread.
class BusClaim : public Announcer {
 public:
  /// @param bus      must outlive this.
  /// @param on_taken called when another camera serves the bus; this one is to end.
  BusClaim(BusServer& bus, std::function<void()> on_taken);

  /// To be called after each connection to the bus. Waits up to 2 seconds where another
  /// camera listens and does not answer, and takes the bus then.
  /// @return whether this camera may serve the bus.
  bool Claim();

  /// As of the bus; false before Claim has returned true.
  bool Announce(const std::string& topic, const std::string& body) override;

 private:
  void OnMessage(const std::string& instance, const BusServer::Reply& reply);

  BusServer& bus_;
  std::function<void()> on_taken_;
  const std::string instance_;
  bool is_held_ = false;
};

}  // namespace virtual_camera
