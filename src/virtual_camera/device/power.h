// Whether the camera is up or rebooting.
#pragma once

#include <cstdint>
#include <functional>
#include <vector>

#include "virtual_camera/surroundings/timeline.h"

namespace virtual_camera {

/// Used on the camera's thread.
class Power {
 public:
  /// @param reboot_ms how long a reboot takes.
  Power(Timeline& timeline, int64_t reboot_ms) : timeline_(timeline), reboot_ms_(reboot_ms) {}

  bool IsUp() const { return is_up_; }
  int64_t reboots() const { return reboots_; }

  /// Called after each change, in the order of adding.
  void OnChange(std::function<void(bool is_up)> listener) {
    listeners_.push_back(std::move(listener));
  }

  /// Goes down after kLeadIn_ms, so that the request is answered before, and up again by
  /// itself. Does nothing while a reboot is under way.
  void Reboot() {
    if (is_rebooting_) {
      return;
    }
    is_rebooting_ = true;
    ++reboots_;
    timeline_.After(kLeadIn_ms, [this] {
      Set(false);
      timeline_.After(reboot_ms_, [this] {
        is_rebooting_ = false;
        Set(true);
      });
    });
  }

  static constexpr int64_t kLeadIn_ms = 20;

 private:
  void Set(bool is_up) {
    is_up_ = is_up;
    for (const auto& listener : listeners_) {
      listener(is_up);
    }
  }

  Timeline& timeline_;
  const int64_t reboot_ms_;
  bool is_up_ = true;
  bool is_rebooting_ = false;
  int64_t reboots_ = 0;
  std::vector<std::function<void(bool)>> listeners_;
};

}  // namespace virtual_camera
