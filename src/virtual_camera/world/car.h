// The cars that pass in front of the camera.
#pragma once

#include <cstdint>
#include <random>
#include <string>
#include <vector>

namespace virtual_camera {

struct Colour {
  uint8_t red;
  uint8_t green;
  uint8_t blue;
};

/// A kind of number plate: the codes that a result carries for it, and its colours.
struct PlateKind {
  int32_t colour_type;
  int32_t type;
  const char* name;  ///< of the colour
  const char* kind;
  Colour ground;
  Colour text;
};

/// A vehicle colour by its code, which is its place in the table.
struct CarPaint {
  const char* name;
  Colour colour;
};

/// One car, with what a result says of it and what a picture shows.
struct Car {
  std::string plate;  ///< at most kMaxPlateLength bytes
  const PlateKind* plate_kind = nullptr;
  uint8_t paint_code = 0;
  CarPaint paint{};
  double lane_offset = 0;  ///< across the lane, -1 (left) to 1 (right)
  double nearness = 0;     ///< 0 (far) to 1 (near)
  bool is_leaving = false;
  uint8_t brand = 0;
  uint8_t brand_type = 0;
  uint16_t brand_year = 0;
};

/// Generates cars: random ones, and 24 regular ones that return, each with the same looks.
class Traffic {
 public:
  /// @param seed the same seed gives the same cars.
  explicit Traffic(uint32_t seed);

  Car Next();

  /// A car of the given plate, which looks the same each time it comes.
  Car WithPlate(const std::string& plate);

  /// A random number within bounds, both inclusive, from the same seed.
  int Chance(int low, int high);

 private:
  std::string NewPlate();

  std::mt19937 random_;
  std::vector<std::string> regulars_;
};

}  // namespace virtual_camera
