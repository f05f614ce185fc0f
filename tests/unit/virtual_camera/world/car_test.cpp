#include "virtual_camera/world/car.h"

#include <gtest/gtest.h>

#include <functional>
#include <string>

#include "support/contract.h"

namespace virtual_camera {
namespace {

/// What the contract says that a code of a plate result means on the desk.
std::string Meaning(const std::string& key, int code) {
  const Json::Value* schema =
      &Contract::Instance().document()["components"]["schemas"]["payload_ivs_result"];
  for (const char* step : {"AlarmInfoPlate", "result", "PlateResult"}) {
    schema = &(*schema)["properties"][step];
  }
  return (*schema)["properties"][key]["x-desk-codes"][std::to_string(code)].asString();
}

class CodesOfCars : public testing::Test {
 protected:
  /// So many that each kind and colour is among them.
  void ForManyCars(const std::function<void(const Car&)>& look) {
    Traffic traffic(1);
    for (int i = 0; i < 500; ++i) {
      look(traffic.Next());
    }
  }
};

TEST_F(CodesOfCars, OfPlateTypesMeanWhatTheContractSays) {
  ForManyCars([](const Car& car) {
    EXPECT_EQ(Meaning("type", car.plate_kind->type), car.plate_kind->kind);
  });
}

TEST_F(CodesOfCars, OfPlateColoursMeanWhatTheContractSays) {
  ForManyCars([](const Car& car) {
    EXPECT_EQ(Meaning("colorType", car.plate_kind->colour_type), car.plate_kind->name);
  });
}

TEST_F(CodesOfCars, OfPaintsMeanWhatTheContractSays) {
  ForManyCars(
      [](const Car& car) { EXPECT_EQ(Meaning("carColor", car.paint_code), car.paint.name); });
}

}  // namespace
}  // namespace virtual_camera
