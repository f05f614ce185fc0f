// How services answer: normally, or wrongly for a test of the other side.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include <json/value.h>

namespace virtual_camera {

struct ServiceMode {
  enum class Kind { kUp, kDown, kSlow, kGarbage };
  Kind kind = Kind::kUp;
  int delay_ms = 0;  ///< of kSlow
};

/// The modes by queue, and a switch that stops all. Used on the camera's thread.
class ServiceModes {
 public:
  static constexpr int kMaxDelay_ms = 600000;

  explicit ServiceModes(const std::vector<std::string>& queues);

  /// Called after each change.
  void OnChange(std::function<void()> on_change) { on_change_ = std::move(on_change); }

  /// @param mode     "up", "down" (nobody serves the queue), "slow" (answers late) or
  ///                 "garbage" (answers bytes without meaning, carries out
  ///                 nothing).
  /// @param delay_ms of "slow", 0 to kMaxDelay_ms.
  /// Throws RequestError for a queue, a mode or a delay that there is not.
  void Set(const std::string& queue, const std::string& mode, int delay_ms);

  /// While silent, no queue is served, as of a camera that is off.
  void SetSilent(bool silent);

  bool IsServed(const std::string& queue) const;
  ServiceMode Of(const std::string& queue) const;

  /// Mode by queue, such as "up" or "slow 500".
  Json::Value State() const;

 private:
  std::map<std::string, ServiceMode> modes_;
  bool is_silent_ = false;
  std::function<void()> on_change_;
};

}  // namespace virtual_camera
