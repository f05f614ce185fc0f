// A picture to draw on: owns an image of libgd.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include <gd.h>

#include "virtual_camera/world/car.h"
#include "virtual_camera/world/ivs_record.h"

namespace virtual_camera {

/// Coordinates are pixels from the top left; what lies outside is cut off.
class Canvas {
 public:
  /// Throws std::runtime_error when there is no memory.
  Canvas(int width, int height);

  /// Throws std::runtime_error when the font's file cannot be used.
  static void CheckFont();

  void Fill(const PixelRect& rect, Colour colour);
  void FillQuad(const gdPoint (&corners)[4], Colour colour);
  void FillCircle(int x, int y, int diameter, Colour colour);

  /// Writes a text into the middle of a rectangle, as large as it fits.
  void TextInto(const PixelRect& rect, const std::string& text, Colour colour);

  /// Writes a text with its top left corner at a point.
  void TextAt(int x, int y, double size_px, const std::string& text, Colour colour);

  /// A JPEG's bytes. Throws std::runtime_error when there is no memory.
  std::string Encode(int quality) const;

  /// Writes the JPEG file as WriteDurably. Throws std::runtime_error when it cannot.
  /// @return its size in bytes.
  int64_t Save(const std::string& path, int quality) const;

 private:
  struct Destroy {
    void operator()(gdImagePtr image) const { gdImageDestroy(image); }
  };

  int Pen(Colour colour) const;

  std::unique_ptr<gdImage, Destroy> image_;
};

}  // namespace virtual_camera
