#include "virtual_camera/world/car.h"

#include <array>

#include "virtual_camera/world/ivs_record.h"

namespace virtual_camera {

namespace {

constexpr std::array<PlateKind, 4> kPlateKinds{{
    {1, 1, "white", "private", {245, 245, 245}, {20, 20, 20}},
    {2, 2, "yellow", "commercial", {247, 202, 24}, {20, 20, 20}},
    {3, 3, "blue", "official", {28, 78, 196}, {250, 250, 250}},
    {4, 4, "green", "electric", {96, 186, 96}, {20, 20, 20}},
}};

constexpr std::array<CarPaint, 8> kPaints{{
    {"white", {236, 236, 236}},
    {"silver", {178, 182, 186}},
    {"grey", {104, 108, 112}},
    {"black", {36, 36, 40}},
    {"red", {176, 32, 36}},
    {"blue", {36, 72, 150}},
    {"green", {40, 110, 64}},
    {"brown", {112, 78, 52}},
}};

constexpr size_t kRegulars = 24;
constexpr int kRegularPercent = 30;

// FNV-1a: the standard hash may differ from one library to the next.
uint32_t HashOf(const std::string& text) {
  uint32_t hash = 2166136261U;
  for (const char c : text) {
    hash = (hash ^ static_cast<uint8_t>(c)) * 16777619U;
  }
  return hash;
}

}  // namespace

Traffic::Traffic(uint32_t seed) : random_(seed) {
  for (size_t i = 0; i < kRegulars; ++i) {
    regulars_.push_back(NewPlate());
  }
}

int Traffic::Chance(int low, int high) {
  // Not std::uniform_int_distribution, whose numbers are each library's own.
  return low + static_cast<int>(random_() % static_cast<uint32_t>(high - low + 1));
}

std::string Traffic::NewPlate() {
  // Without I, O and Q, which look like digits.
  static constexpr char kLetters[] = "ABCDEFGHJKLMNPRSTUVWXYZ";
  std::string plate;
  for (const char kind : std::string("LL999LL")) {
    plate += kind == 'L' ? kLetters[Chance(0, sizeof(kLetters) - 2)]
                         : static_cast<char>('0' + Chance(0, 9));
  }
  return plate;
}

Car Traffic::Next() {
  if (Chance(1, 100) <= kRegularPercent) {
    return WithPlate(regulars_[static_cast<size_t>(Chance(0, kRegulars - 1))]);
  }
  return WithPlate(NewPlate());
}

Car Traffic::WithPlate(const std::string& plate) {
  const uint32_t looks = HashOf(plate);
  Car car;
  car.plate = plate.substr(0, kMaxPlateLength);
  // Two of three plates are of the first kind.
  const uint32_t kind = looks % (3 * kPlateKinds.size());
  car.plate_kind = &kPlateKinds[kind < kPlateKinds.size() ? kind : 0];
  car.paint_code = static_cast<uint8_t>((looks >> 8) % kPaints.size());
  car.paint = kPaints[car.paint_code];
  car.brand = static_cast<uint8_t>(1 + (looks >> 12) % 60);
  car.brand_type = static_cast<uint8_t>(1 + (looks >> 18) % 12);
  car.brand_year = static_cast<uint16_t>(2005 + (looks >> 22) % 20);
  car.lane_offset = Chance(-60, 60) / 100.0;
  car.nearness = Chance(40, 100) / 100.0;
  car.is_leaving = Chance(0, 3) == 0;
  return car;
}

}  // namespace virtual_camera
