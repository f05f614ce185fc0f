#include "virtual_camera/world/scene.h"

#include <algorithm>
#include <cmath>

#include "virtual_camera/world/canvas.h"

namespace virtual_camera {

namespace {

constexpr Colour kSky{150, 188, 220};
constexpr Colour kGrass{92, 128, 76};
constexpr Colour kRoad{78, 80, 84};
constexpr Colour kMarking{226, 226, 220};
constexpr Colour kGlass{58, 74, 92};
constexpr Colour kTyre{24, 24, 26};
constexpr Colour kLamp{255, 240, 190};
constexpr Colour kTailLamp{200, 30, 30};
constexpr Colour kSkin{226, 184, 150};
constexpr Colour kJacket{214, 120, 30};
constexpr Colour kWhite{255, 255, 255};
constexpr Colour kShadow{48, 50, 54};

// A camera that sees 60 degrees across and 34 up and down.
constexpr double kFieldAcross = 60;
constexpr double kFieldUp = 34;

constexpr int kMostSentWidth = 1280;

int Rounded(double value) { return static_cast<int>(std::lround(value)); }

// Limited, because libgd draws with int coordinates.
int ShiftX(int width, double pan_degrees) {
  return Rounded(std::clamp(-pan_degrees / kFieldAcross, -4.0, 4.0) * width);
}
int ShiftY(int height, double tilt_degrees) {
  return Rounded(std::clamp(tilt_degrees / kFieldUp, -4.0, 4.0) * height);
}

PixelRect Within(PixelRect rect, int width, int height) {
  rect.left = std::clamp(rect.left, 0, width - 1);
  rect.right = std::clamp(rect.right, 0, width - 1);
  rect.top = std::clamp(rect.top, 0, height - 1);
  rect.bottom = std::clamp(rect.bottom, 0, height - 1);
  return rect;
}

// Where the car is, also outside of the picture.
PixelRect Body(const Car& car, int width, int height, double pan, double tilt) {
  const double size = 0.22 + 0.26 * car.nearness;
  const double wide = width * size;
  const double high = wide * 0.62;
  const double middle = width * (0.5 + 0.16 * car.lane_offset) + ShiftX(width, pan);
  const double bottom = height * (0.52 + 0.42 * car.nearness) + ShiftY(height, tilt);
  return {Rounded(middle - wide / 2), Rounded(bottom - high), Rounded(middle + wide / 2),
          Rounded(bottom)};
}

PixelRect Figure(int width, int height, double pan, double tilt) {
  const int high = height * 34 / 100;
  const int middle = width * 40 / 100 + ShiftX(width, pan);
  const int bottom = height * 86 / 100 + ShiftY(height, tilt);
  return {middle - high / 6, bottom - high, middle + high / 6, bottom};
}

PixelRect PlateOn(const PixelRect& body) {
  const int wide = body.right - body.left;
  const int high = body.bottom - body.top;
  const int middle = (body.left + body.right) / 2;
  const int bottom = body.bottom - high * 17 / 100;
  return {middle - wide * 17 / 100, bottom - wide * 8 / 100, middle + wide * 17 / 100, bottom};
}

void DrawRoad(Canvas& canvas, int width, int height, const View& view) {
  const int dx = ShiftX(width, view.pan_degrees);
  const int dy = ShiftY(height, view.tilt_degrees);
  const int horizon = height * 42 / 100 + dy;
  canvas.Fill({0, 0, width - 1, std::max(0, horizon)}, kSky);
  canvas.Fill({0, std::max(0, horizon), width - 1, height - 1}, kGrass);
  const int middle = width / 2 + dx;
  const int foot = height + dy;
  canvas.FillQuad({{middle - width / 14, horizon},
                   {middle + width / 14, horizon},
                   {middle + width * 6 / 10, foot},
                   {middle - width * 6 / 10, foot}},
                  kRoad);
  // Dashes, larger towards the bottom.
  for (int i = 0; i < 5; ++i) {
    const double from = i * i / 25.0;
    const double to = from + (2 * i + 1) / 50.0;
    const int top = horizon + Rounded(from * (foot - horizon));
    const int bottom = horizon + Rounded(to * (foot - horizon));
    const int half = std::max(1, Rounded(width * 0.008 * (0.2 + to)));
    canvas.Fill({middle - half, top, middle + half, bottom}, kMarking);
  }
}

void DrawCar(Canvas& canvas, const Car& car, const PixelRect& body) {
  const int wide = body.right - body.left;
  const int high = body.bottom - body.top;
  const auto x = [&](int percent) { return body.left + wide * percent / 100; };
  const auto y = [&](int percent) { return body.top + high * percent / 100; };
  canvas.Fill({x(4), y(96), x(96), y(102)}, kShadow);
  canvas.Fill({x(6), y(80), x(20), y(100)}, kTyre);
  canvas.Fill({x(80), y(80), x(94), y(100)}, kTyre);
  canvas.FillQuad({{x(22), y(0)}, {x(78), y(0)}, {x(92), y(46)}, {x(8), y(46)}}, car.paint.colour);
  canvas.FillQuad({{x(26), y(6)}, {x(74), y(6)}, {x(85), y(42)}, {x(15), y(42)}}, kGlass);
  canvas.Fill({x(2), y(44), x(98), y(90)}, car.paint.colour);
  const Colour lamp = car.is_leaving ? kTailLamp : kLamp;
  canvas.FillCircle(x(13), y(58), std::max(2, wide / 9), lamp);
  canvas.FillCircle(x(87), y(58), std::max(2, wide / 9), lamp);
  const PixelRect plate = PlateOn(body);
  canvas.Fill({plate.left - 1, plate.top - 1, plate.right + 1, plate.bottom + 1}, kTyre);
  canvas.Fill(plate, car.plate_kind->ground);
  canvas.TextInto(plate, car.plate, car.plate_kind->text);
}

void DrawPerson(Canvas& canvas, const PixelRect& figure) {
  const int wide = figure.right - figure.left;
  const int high = figure.bottom - figure.top;
  const int middle = (figure.left + figure.right) / 2;
  canvas.FillCircle(middle, figure.top + high / 8, std::max(2, high / 5), kSkin);
  canvas.Fill({figure.left, figure.top + high / 4, figure.right, figure.top + high * 6 / 10},
              kJacket);
  canvas.Fill({figure.left, figure.top + high * 6 / 10, middle - wide / 10, figure.bottom}, kTyre);
  canvas.Fill({middle + wide / 10, figure.top + high * 6 / 10, figure.right, figure.bottom}, kTyre);
}

}  // namespace

Scene::Scene(PictureOptions options) : options_(options) { Canvas::CheckFont(); }

CarPlace Scene::PlaceOf(const Car& car, double pan_degrees, double tilt_degrees) const {
  const PixelRect body = Body(car, options_.width, Height(), pan_degrees, tilt_degrees);
  return {Within(body, options_.width, Height()), Within(PlateOn(body), options_.width, Height())};
}

PixelRect Scene::PlaceOfPerson(double pan_degrees, double tilt_degrees) const {
  return Within(Figure(options_.width, Height(), pan_degrees, tilt_degrees), options_.width,
                Height());
}

int64_t Scene::DrawFull(const View& view, const std::string& path) const {
  return Draw(view, options_.width, path);
}

int64_t Scene::DrawSmall(const View& view, const std::string& path) const {
  return Draw(view, std::max(48, options_.width / 4), path);
}

int64_t Scene::Draw(const View& view, int width, const std::string& path) const {
  return Drawn(view, width).Save(path, options_.quality);
}

std::string Scene::EncodeFull(const View& view) const {
  return Drawn(view, std::min(options_.width, kMostSentWidth)).Encode(options_.quality);
}

Canvas Scene::Drawn(const View& view, int width) {
  const int height = width * 9 / 16;
  Canvas canvas(width, height);
  DrawRoad(canvas, width, height, view);
  if (view.car) {
    DrawCar(canvas, *view.car, Body(*view.car, width, height, view.pan_degrees, view.tilt_degrees));
  }
  if (view.has_person) {
    DrawPerson(canvas, Figure(width, height, view.pan_degrees, view.tilt_degrees));
  }
  const double line = std::max(8.0, width / 45.0);
  canvas.Fill({0, 0, width - 1, Rounded(line * 1.5)}, kShadow);
  canvas.TextAt(width / 100 + 1, 1, line, view.caption, kWhite);
  return canvas;
}

int64_t Scene::DrawClip(const Car& car, const std::string& path) const {
  const int width = std::max(48, options_.width / 4);
  const int height = width / 3;
  Canvas canvas(width, height);
  canvas.Fill({0, 0, width - 1, height - 1}, kTyre);
  const int edge = std::max(1, width / 60);
  const PixelRect plate{edge, edge, width - 1 - edge, height - 1 - edge};
  canvas.Fill(plate, car.plate_kind->ground);
  canvas.TextInto(plate, car.plate, car.plate_kind->text);
  return canvas.Save(path, options_.quality);
}

}  // namespace virtual_camera
