#include "cloud_agent/status/device_health.h"

#include <gtest/gtest.h>

#include "json_text.h"

namespace agent {
namespace {

using std::chrono::seconds;
using tarvex::BusOutcome;

const std::map<std::string, bool> kDatabases = {{"config", true}};

class DeviceHealthTest : public testing::Test {
 protected:
  void Asked(const std::string& queue, BusOutcome outcome, seconds at = seconds(0)) {
    tarvex::BusRequest request;
    request.queue = queue;
    request.outcome = outcome;
    health_.OnBusRequest(request, DeviceHealth::TimePoint(at));
  }

  std::string Text(seconds now) {
    std::string text;
    Json::Json2String(health_.ToJson(kDatabases, DeviceHealth::TimePoint(now)), text);
    return text;
  }

  DeviceHealth health_;
};

TEST_F(DeviceHealthTest, KnowsOfNoDeviceAtFirst) {
  EXPECT_FALSE(health_.IsDeviceThere(kDatabases));
  EXPECT_EQ(Text(seconds(0)), R"({"bus":false,"databases":{"config":true},"services":{}})");
}

TEST_F(DeviceHealthTest, TakesTheStoresAnswerForTheDevices) {
  Asked("BUS_GET_IVS_INFO", BusOutcome::kAnswered);
  EXPECT_TRUE(health_.IsDeviceThere(kDatabases));
  Asked("BUS_GET_IVS_INFO", BusOutcome::kNobody);
  EXPECT_FALSE(health_.IsDeviceThere(kDatabases));
}

TEST_F(DeviceHealthTest, NeedsTheBusAndEveryDatabase) {
  Asked("BUS_GET_IVS_INFO", BusOutcome::kAnswered);
  EXPECT_FALSE(health_.IsDeviceThere({{"config", true}, {"device", false}}));
  Asked("EVS_GPIO_CONTROL", BusOutcome::kNotConnected);
  EXPECT_FALSE(health_.IsDeviceThere(kDatabases));
}

TEST_F(DeviceHealthTest, KeepsAServiceThatFailsApartFromTheDevice) {
  Asked("BUS_GET_IVS_INFO", BusOutcome::kAnswered);
  Asked("EVS_GPIO_CONTROL", BusOutcome::kTimedOut);
  EXPECT_TRUE(health_.IsDeviceThere(kDatabases));
}

TEST_F(DeviceHealthTest, TellsEachServiceAsItsLatestRequestFoundIt) {
  Asked("A", BusOutcome::kNobody, seconds(1));
  Asked("A", BusOutcome::kAnswered, seconds(5));
  Asked("B", BusOutcome::kTimedOut, seconds(7));
  EXPECT_EQ(Text(seconds(10)),
            R"({"bus":true,"databases":{"config":true},"services":{)"
            R"("A":{"age_s":5,"answers":true},"B":{"age_s":3,"answers":false}}})");
}

}  // namespace
}  // namespace agent
