// Time and delayed tasks. An interface so that tests set the time.
#pragma once

#include <cstdint>
#include <functional>

namespace virtual_camera {

/// Used on the camera's thread only.
class Timeline {
 public:
  virtual ~Timeline() = default;

  /// Milliseconds since an arbitrary beginning; setting the host's clock does not change them.
  virtual int64_t SteadyMs() const = 0;

  /// Microseconds since 1970 by the host's clock.
  virtual int64_t SystemUs() const = 0;

  /// Runs a task on the camera's thread after a delay; zero or less: after the tasks that
  /// wait already. Cannot be cancelled.
  virtual void After(int64_t delay_ms, std::function<void()> task) = 0;
};

}  // namespace virtual_camera
