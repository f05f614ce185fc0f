// Time as the camera sees it. An interface so that tests turn it by hand.
#pragma once

#include <cstdint>
#include <functional>

namespace virtual_camera {

/// Used on the camera's thread only.
class Timeline {
 public:
  virtual ~Timeline() = default;

  /// Milliseconds that never jump, from an arbitrary beginning.
  virtual int64_t SteadyMs() const = 0;

  /// Microseconds since 1970 by the host's clock.
  virtual int64_t SystemUs() const = 0;

  /// Runs a task on the camera's thread after a delay, which cannot be undone; zero or
  /// less: in its turn, as soon as possible.
  virtual void After(int64_t delay_ms, std::function<void()> task) = 0;
};

}  // namespace virtual_camera
