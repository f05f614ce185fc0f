// The head that turns the camera.
#pragma once

#include <cstdint>

#include <json/value.h>

#include "virtual_camera/surroundings/timeline.h"

namespace virtual_camera {

/// An angle that changes at a constant rate until it is stopped or at its limit. No timer
/// runs meanwhile: the angle is computed from the time. Used on the camera's thread.
class Axis {
 public:
  /// Degrees.
  Axis(Timeline& timeline, double low, double high);

  double Angle() const;
  bool IsMoving() const;

  /// Degrees per second; negative goes towards the low limit. Ends a move under way.
  void Move(double rate);
  void Stop();

  /// How long the present or the last move has lasted, up to its limit.
  int64_t last_move_ms() const { return rate_ != 0 ? MovedMs() : last_move_ms_; }

 private:
  // What the present move has taken so far, no more than it can until the limit.
  double MovedSeconds() const;
  int64_t MovedMs() const;

  Timeline& timeline_;
  const double low_;
  const double high_;
  double from_ = 0;
  double rate_ = 0;
  int64_t since_ms_ = 0;
  int64_t last_move_ms_ = 0;
};

/// Pan (negative left, positive right) and tilt (negative down, positive up).
class PanTilt {
 public:
  explicit PanTilt(Timeline& timeline);

  /// Moves or stops: 2 left, 4 right, 8 ends either; 16 up, 32 down, 64 ends either. An
  /// axis goes `degree` times kDegreesPerSecond until stopped. Throws RequestError for
  /// another direction, or a degree that is not 0 to 10.
  void Control(int direction, int degree);

  void StopAll();

  double pan_degrees() const { return pan_.Angle(); }
  double tilt_degrees() const { return tilt_.Angle(); }

  Json::Value State() const;

  static constexpr double kDegreesPerSecond = 10;

 private:
  Axis pan_;
  Axis tilt_;
};

}  // namespace virtual_camera
