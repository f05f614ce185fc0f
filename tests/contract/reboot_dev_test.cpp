#include "adapter_test.h"

namespace {

class RebootDev : public AdapterTest {
 protected:
  void SetUp() override { Start(); }
  bool Reboot(const std::string& version = "1.0") {
    return CloudSends("reboot_dev", R"({"type":"reboot_dev"})", version);
  }
  const std::string kRequest = R"(SS_BUS_REQUEST {"type":"reboot_dev"} timeout=3000)";
};

TEST_F(RebootDev, AsksTheSystemService) {
  Answers("SS_BUS_REQUEST", "");
  EXPECT_TRUE(Reboot());
  EXPECT_EQ(BusHeard(), kRequest);
  EXPECT_EQ(LogLines().size(), 1U);  // the request's own line
}

TEST_F(RebootDev, GoesByTheResultOfTheSendWithoutALine) {
  for (const int result : {0, -1}) {
    Answers("SS_BUS_REQUEST", "{}", result);
    EXPECT_FALSE(Reboot());
    EXPECT_EQ(BusHeard(), kRequest);
  }
  EXPECT_EQ(LogLines().size(), 2U);
}

TEST_F(RebootDev, IgnoresTheReply) {
  Answers("SS_BUS_REQUEST", "no json", 2);
  EXPECT_TRUE(Reboot());
  EXPECT_EQ(BusHeard(), kRequest);
}

TEST_F(RebootDev, SaysUnderItsOwnNameWhatIsWrongWithThePayload) {
  EXPECT_FALSE(CloudSends("reboot_dev", "[]"));
  EXPECT_EQ(LoggedBy("DoCmdReboot", 4, "invalid payload, not json object"), 1U);
  EXPECT_FALSE(CloudSends("reboot_dev", "{}"));
  EXPECT_EQ(LoggedBy("DoCmdReboot", 4, "payload parameter is incomplete and type is missing"), 1U);
}

TEST_F(RebootDev, RefusesAnotherTypeOrVersionWithoutALine) {
  for (const char* payload : {R"({"type":5})", R"({"type":"reboot"})", R"({"type":null})"}) {
    EXPECT_FALSE(CloudSends("reboot_dev", payload));
  }
  EXPECT_FALSE(Reboot("1.1"));
  EXPECT_FALSE(Reboot(""));
  EXPECT_EQ(LogLines().size(), 5U);
}

TEST_F(RebootDev, LeavesTheResponseAsItIs) {
  response_["kept"] = 1;
  Answers("SS_BUS_REQUEST", "{}");
  Reboot();
  BusHeard();
  EXPECT_EQ(Compact(response_), R"({"kept":1})");
}

class RebootDevWithoutBus : public AdapterTest {};

TEST_F(RebootDevWithoutBus, IsRefused) {
  platform().has_bus = false;
  Start();
  EXPECT_FALSE(CloudSends("reboot_dev", R"({"type":"reboot_dev"})"));
}

}  // namespace
