#include "rig_test.h"

#include <iostream>

#include "support/contract.h"
#include "tarvex/base64.h"

namespace {

/// Has everything that the camera sends held against the contract, in every test.
class HeldAgainstTheContract : public testing::Environment {
 public:
  void SetUp() override {
    MqttClient::inspector = [](const MqttClient::Message& message) {
      const std::string violations =
          Contract::Instance().ViolationsOnTopic(message.topic, message.payload);
      EXPECT_EQ(violations, "") << message.topic << " " << message.payload;
    };
  }
};

const testing::Environment* const kEnvironment =
    testing::AddGlobalTestEnvironment(new HeldAgainstTheContract);

}  // namespace

std::string FromBase64(const std::string& text) {
  std::string bytes;
  using tarvex::Base64;
  EXPECT_TRUE(Base64::DecodeFromArray(
      text.data(), text.size(),
      Base64::kParseStrict | Base64::kPaddingRequired | Base64::kEndAtBuffer, &bytes, nullptr))
      << text;
  return bytes;
}

RigTest::RigTest(const BrokerProgram& broker)
    : rig_({RIG_CAMERA, RIG_CAMERA_CTL, RIG_AGENT, RIG_PLUGIN}, broker) {}

void RigTest::TearDown() {
  if (!HasFailure()) {
    return;
  }
  if (rig_.camera) {
    std::cerr << "--- camera ---\n" << rig_.camera->Output();
  }
  if (rig_.agent) {
    std::cerr << "--- agent ---\n" << rig_.agent->Output();
  }
}

const Json::Value& RigTest::PlateResult(const Json::Value& message) {
  return message["payload"]["AlarmInfoPlate"]["result"]["PlateResult"];
}

std::string RigTest::Plate(const Json::Value& message) {
  return FromBase64(PlateResult(message)["license"].asString());
}

Json::Value RigTest::AwaitPlate(const std::string& plate) {
  Json::Value found;
  EXPECT_TRUE(rig_.cloud->Await([&](const MqttClient::Message& message) {
    if (message.topic != rig_.Topic("message/ivs_result")) {
      return false;
    }
    found = ParseJson(message.payload);
    return Plate(found) == plate;
  })) << "no result of "
      << plate;
  return found;
}

bool RigTest::AgentPrints(const std::string& text) {
  return WaitUntil([&] { return rig_.agent->Output().find(text) != std::string::npos; });
}

bool RigTest::AgentIsConnected() const {
  const std::string printed = rig_.agent->Output();
  const std::size_t connected = printed.rfind("broker connected");
  const std::size_t lost = printed.rfind("broker lost");
  return connected != std::string::npos && (lost == std::string::npos || connected > lost);
}

void RigTest::MissCars(int count) {
  rig_.broker.Kill();
  ASSERT_TRUE(AgentPrints("broker lost"));
  for (int i = 0; i < count; ++i) {
    rig_.Ctl({"car"});
  }
}

void RigTest::BrokerComesBack() {
  rig_.cloud->Forget();
  rig_.broker.Start();
  ASSERT_TRUE(rig_.AwaitOnline(true));
  ASSERT_TRUE(WaitUntil([this] { return rig_.cloud->IsSubscribed(); }));
  // The status may be an old one that the broker has kept.
  ASSERT_TRUE(WaitUntil([this] { return AgentIsConnected(); }));
}

void RigTest::Push(int max_count) {
  EXPECT_EQ(rig_.Request("check_offline_record", R"({"enable":"push","max_count":)" +
                                                     std::to_string(max_count) + "}")["result"],
            true);
}

unsigned int RigTest::AwaitRedelivered() {
  const Json::Value message = rig_.AwaitMessage("ivs_result");
  EXPECT_EQ(message["tag"].asInt(), 16);
  EXPECT_EQ(PlateResult(message)["isoffline"].asInt(), 1);
  return PlateResult(message)["plateid"].asUInt();
}
