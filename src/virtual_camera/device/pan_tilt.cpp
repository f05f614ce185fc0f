#include "virtual_camera/device/pan_tilt.h"

#include <algorithm>
#include <cmath>
#include <string>

#include "virtual_camera/device/request_error.h"

namespace virtual_camera {

namespace {

constexpr double kPanLimit = 170;
constexpr double kTiltLow = -30;
constexpr double kTiltHigh = 90;
constexpr int kMaxDegree = 10;

// As the state shows angles.
double Tenths(double degrees) { return std::round(degrees * 10) / 10; }

}  // namespace

Axis::Axis(Timeline& timeline, double low, double high)
    : timeline_(timeline), low_(low), high_(high) {}

double Axis::MovedSeconds() const {
  if (rate_ == 0) {
    return 0;
  }
  const double reachable = ((rate_ > 0 ? high_ : low_) - from_) / rate_;
  return std::min(static_cast<double>(timeline_.SteadyMs() - since_ms_) / 1000, reachable);
}

int64_t Axis::MovedMs() const { return std::llround(MovedSeconds() * 1000); }

double Axis::Angle() const { return std::clamp(from_ + rate_ * MovedSeconds(), low_, high_); }

bool Axis::IsMoving() const {
  const double angle = Angle();
  return (rate_ > 0 && angle < high_) || (rate_ < 0 && angle > low_);
}

void Axis::Move(double rate) {
  Stop();
  rate_ = rate;
  since_ms_ = timeline_.SteadyMs();
}

void Axis::Stop() {
  if (rate_ != 0) {
    last_move_ms_ = MovedMs();
  }
  from_ = Angle();
  rate_ = 0;
}

PanTilt::PanTilt(Timeline& timeline)
    : pan_(timeline, -kPanLimit, kPanLimit), tilt_(timeline, kTiltLow, kTiltHigh) {}

void PanTilt::Control(int direction, int degree) {
  if (degree < 0 || degree > kMaxDegree) {
    throw RequestError("a degree is 0 to 10, not " + std::to_string(degree));
  }
  const double rate = degree * kDegreesPerSecond;
  switch (direction) {
    case 2:
      return pan_.Move(-rate);
    case 4:
      return pan_.Move(rate);
    case 8:
      return pan_.Stop();
    case 16:
      return tilt_.Move(rate);
    case 32:
      return tilt_.Move(-rate);
    case 64:
      return tilt_.Stop();
    default:
      throw RequestError("there is no direction " + std::to_string(direction));
  }
}

void PanTilt::StopAll() {
  pan_.Stop();
  tilt_.Stop();
}

Json::Value PanTilt::State() const {
  Json::Value state;
  state["pan"] = Tenths(pan_.Angle());
  state["tilt"] = Tenths(tilt_.Angle());
  state["is_panning"] = pan_.IsMoving();
  state["is_tilting"] = tilt_.IsMoving();
  state["last_pan_move_ms"] = static_cast<Json::Int64>(pan_.last_move_ms());
  state["last_tilt_move_ms"] = static_cast<Json::Int64>(tilt_.last_move_ms());
  return state;
}

}  // namespace virtual_camera
