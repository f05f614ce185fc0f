#include "virtual_camera/world/canvas.h"

#include <algorithm>
#include <stdexcept>

#include "virtual_camera/world/durable_file.h"

namespace virtual_camera {

namespace {

constexpr char kFont[] = "/usr/share/fonts/truetype/dejavu/DejaVuSans-Bold.ttf";

// libgd takes texts as writable and points as 1/72 inch at 96 pixels per inch.
char* Writable(std::string& text) { return text.data(); }
double Points(double size_px) { return size_px * 72.0 / 96.0; }

// Lower left x, y, then lower right, upper right, upper left.
const char* Draw(gdImagePtr image, int (&box)[8], int pen, double points, int x, int y,
                 const std::string& text) {
  std::string font = kFont;
  std::string line = text;
  return gdImageStringFT(image, box, pen, Writable(font), points, 0.0, x, y, Writable(line));
}

}  // namespace

Canvas::Canvas(int width, int height) : image_(gdImageCreateTrueColor(width, height)) {
  if (!image_) {
    throw std::runtime_error("no memory for a picture");
  }
}

void Canvas::CheckFont() {
  int box[8];
  const char* reason = Draw(nullptr, box, 0, 12, 0, 0, "A");
  if (reason != nullptr) {
    throw std::runtime_error(std::string(kFont) + ": " + reason);
  }
}

int Canvas::Pen(Colour colour) const {
  return gdTrueColor(static_cast<int>(colour.red), static_cast<int>(colour.green),
                     static_cast<int>(colour.blue));
}

void Canvas::Fill(const PixelRect& rect, Colour colour) {
  gdImageFilledRectangle(image_.get(), rect.left, rect.top, rect.right, rect.bottom, Pen(colour));
}

void Canvas::FillQuad(const gdPoint (&corners)[4], Colour colour) {
  gdPoint points[4];
  std::copy(std::begin(corners), std::end(corners), points);
  gdImageFilledPolygon(image_.get(), points, 4, Pen(colour));
}

void Canvas::FillCircle(int x, int y, int diameter, Colour colour) {
  gdImageFilledEllipse(image_.get(), x, y, diameter, diameter, Pen(colour));
}

void Canvas::TextInto(const PixelRect& rect, const std::string& text, Colour colour) {
  const int width = rect.right - rect.left;
  const int height = rect.bottom - rect.top;
  if (text.empty() || width < 4 || height < 4) {
    return;
  }
  // Measured once at a known size, and scaled.
  int box[8];
  constexpr double kProbe = 32;
  if (Draw(nullptr, box, 0, kProbe, 0, 0, text) != nullptr) {
    return;  // text that the font cannot show, such as bytes that are no UTF-8
  }
  const double wide = std::max(1, box[2] - box[0]);
  const double high = std::max(1, box[1] - box[7]);
  const double scale = std::min(0.92 * width / wide, 0.72 * height / high);
  const int x = rect.left + static_cast<int>((width - wide * scale) / 2);
  const int y = rect.bottom - static_cast<int>((height - high * scale) / 2);
  Draw(image_.get(), box, Pen(colour), kProbe * scale, x, y, text);
}

void Canvas::TextAt(int x, int y, double size_px, const std::string& text, Colour colour) {
  int box[8];
  Draw(image_.get(), box, Pen(colour), Points(size_px), x, y + static_cast<int>(size_px), text);
}

std::string Canvas::Encode(int quality) const {
  int size = 0;
  const std::unique_ptr<void, void (*)(void*)> bytes(gdImageJpegPtr(image_.get(), &size, quality),
                                                     gdFree);
  if (!bytes) {
    throw std::runtime_error("the picture could not be encoded");
  }
  return {static_cast<const char*>(bytes.get()), static_cast<size_t>(size)};
}

int64_t Canvas::Save(const std::string& path, int quality) const {
  const std::string bytes = Encode(quality);
  WriteDurably(path, bytes);
  return static_cast<int64_t>(bytes.size());
}

}  // namespace virtual_camera
