// Publication on the bus. An interface so that tests need no bus.
#pragma once

#include <string>

namespace virtual_camera {

/// Used on the camera's thread only.
class Announcer {
 public:
  virtual ~Announcer() = default;

  /// Publishes bytes on a bus topic. Never waits, keeps nothing for later.
  /// @return false: nobody can have heard it, because the bus is away.
  virtual bool Announce(const std::string& topic, const std::string& body) = 0;
};

}  // namespace virtual_camera
