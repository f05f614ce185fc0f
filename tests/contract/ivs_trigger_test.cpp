#include "adapter_test.h"

namespace {

class IvsTrigger : public AdapterTest {
 protected:
  void SetUp() override { Start(); }
  const std::string kText =
      "\t{\t\t\"type\" : \"AVS_TRIGGER\",\t\t\"body\" : {\t\t\t\"trigger_result\" :  1,"
      "\t\t\t\"trigger_type\" :  4\t\t}\t}";
  const std::string kRequest = "ALG_REQUEST_MESSAGE " + kText + " timeout=5000";
};

TEST_F(IvsTrigger, SendsTheFixedText) {
  Answers("ALG_REQUEST_MESSAGE", "");
  EXPECT_TRUE(CloudSends("ivs_trigger", R"({"type":"ivs_trigger"})"));
  ASSERT_EQ(platform().requests.size(), 1U);
  EXPECT_EQ(platform().requests.front().data.size(), 91U);
  EXPECT_EQ(BusHeard(), kRequest);
  EXPECT_EQ(LogLines().size(), 1U);  // the request's own line
}

TEST_F(IvsTrigger, DoesNotLookAtThePayload) {
  Answers("ALG_REQUEST_MESSAGE", "no json");
  for (const char* payload : {"null", "[]", "{}", "7", "\"x\"", R"({"type":"other"})"}) {
    EXPECT_TRUE(CloudSends("ivs_trigger", payload)) << payload;
    EXPECT_EQ(BusHeard(), kRequest);
  }
}

TEST_F(IvsTrigger, RefusesAnotherVersionWithoutALine) {
  EXPECT_FALSE(CloudSends("ivs_trigger", R"({"type":"ivs_trigger"})", "1.1"));
  EXPECT_FALSE(CloudSends("ivs_trigger", R"({"type":"ivs_trigger"})", ""));
  EXPECT_EQ(LogLines().size(), 2U);
}

TEST_F(IvsTrigger, SaysOnTheConsoleThatTheRequestFailed) {
  for (const int result : {0, -1}) {
    Answers("ALG_REQUEST_MESSAGE", "{}", result);
    ForgetLogs();
    bool done = true;
    EXPECT_EQ(Console([&] { done = CloudSends("ivs_trigger", "{}"); }),
              "\033[31m send dp failed:" + kText + " \033[0m \n");
    EXPECT_FALSE(done);
    EXPECT_EQ(BusHeard(), kRequest);
    EXPECT_EQ(LogLines().size(), 1U);
  }
}

TEST_F(IvsTrigger, PrintsNothingWhenAnswered) {
  Answers("ALG_REQUEST_MESSAGE", "{}");
  EXPECT_EQ(Console([&] { CloudSends("ivs_trigger", "{}"); }), "");
  BusHeard();
}

TEST_F(IvsTrigger, LeavesTheResponseAsItIs) {
  response_["kept"] = 1;
  Answers("ALG_REQUEST_MESSAGE", "{}");
  CloudSends("ivs_trigger", "{}");
  BusHeard();
  EXPECT_EQ(Compact(response_), R"({"kept":1})");
}

class IvsTriggerWithoutBus : public AdapterTest {};

TEST_F(IvsTriggerWithoutBus, IsRefusedSilently) {
  platform().has_bus = false;
  Start();
  bool done = true;
  EXPECT_EQ(Console([&] { done = CloudSends("ivs_trigger", "{}"); }), "");
  EXPECT_FALSE(done);
  EXPECT_EQ(LogLines().size(), 1U);
}

}  // namespace
