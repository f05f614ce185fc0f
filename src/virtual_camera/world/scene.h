// The pictures that the camera takes: the road, a car on it, and the close-up of its plate.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "virtual_camera/world/car.h"
#include "virtual_camera/world/ivs_record.h"

namespace virtual_camera {

/// How pictures are made.
struct PictureOptions {
  int width = 1280;  ///< of the full picture, pixels, 64 to 3840; the height is 9/16 of it
  int quality = 75;  ///< of the JPEG, 1 to 95
};

/// What a full picture shows.
struct View {
  double pan_degrees = 0;   ///< to the right
  double tilt_degrees = 0;  ///< upwards
  std::string caption;      ///< the line of text at the top
  std::optional<Car> car;
  bool has_person = false;  ///< on the road, beside the car if there is one
};

/// Where a car and its plate are in the full picture; both lie within it.
struct CarPlace {
  PixelRect car;
  PixelRect plate;
};

class Canvas;

/// Draws with libgd. Used on the camera's thread.
class Scene {
 public:
  /// Throws std::runtime_error when the font cannot be used.
  explicit Scene(PictureOptions options);

  CarPlace PlaceOf(const Car& car, double pan_degrees, double tilt_degrees) const;

  PixelRect PlaceOfPerson(double pan_degrees, double tilt_degrees) const;

  /// Write a JPEG file as WriteDurably: the view, the same at a quarter of the size, a
  /// plate's close-up. Throw std::runtime_error when it cannot be written.
  /// @return its size in bytes.
  int64_t DrawFull(const View& view, const std::string& path) const;
  int64_t DrawSmall(const View& view, const std::string& path) const;
  int64_t DrawClip(const Car& car, const std::string& path) const;

  /// The view as a JPEG's bytes, no wider than 1280 pixels, so that it fits a bus message.
  std::string EncodeFull(const View& view) const;

 private:
  int64_t Draw(const View& view, int width, const std::string& path) const;
  static Canvas Drawn(const View& view, int width);
  int Height() const { return options_.width * 9 / 16; }

  const PictureOptions options_;
};

}  // namespace virtual_camera
