// The camera's switching outputs and inputs.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

#include <json/value.h>

#include "virtual_camera/surroundings/announcer.h"
#include "virtual_camera/surroundings/timeline.h"

namespace virtual_camera {

/// Outputs hold a level or pulse; inputs are announced on the bus when they are set. Used on
/// the camera's thread.
class Gpio {
 public:
  static constexpr int kOutputs = 4;
  static constexpr int kInputs = 4;

  /// Both must outlive this.
  Gpio(Timeline& timeline, Announcer& announcer);

  /// Holds an output at 0 or 1, which ends a pulse on it. Throws RequestError for an
  /// output or a level that there is not, as do all below.
  void Hold(int output, int level);

  /// Sets an output to 1 for some milliseconds, at least 1; a pulse that is under way is
  /// prolonged or cut to end then.
  void Pulse(int output, int64_t length_ms);

  int Output(int output) const;

  /// Sets an input, and announces its level even if it was that before.
  void SetInput(int input, int level);

  /// All outputs to 0, as after a reboot; pulses are over.
  void ResetOutputs();

  Json::Value State() const;

 private:
  struct Out {
    int level = 0;
    uint64_t generation = 0;  // counts commands; the end of an older one's pulse is ignored
    int64_t pulses = 0;
  };

  size_t CheckedOutput(int output) const;

  Timeline& timeline_;
  Announcer& announcer_;
  std::array<Out, kOutputs> outputs_;
  std::array<int, kInputs> inputs_{};
};

}  // namespace virtual_camera
