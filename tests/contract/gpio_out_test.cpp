#include "adapter_test.h"

namespace {

class GpioOut : public AdapterTest {
 protected:
  void SetUp() override {
    Start();
    Answers("EVS_GPIO_CONTROL", "");
  }
  bool Drive(const std::string& body, const std::string& version = "1.0") {
    return CloudSends("gpio_out", R"({"type":"gpio_out","body":)" + body + "}", version);
  }
  std::string Driven(const std::string& body) {
    EXPECT_TRUE(Drive(body)) << body;
    return BusHeard();
  }
};

TEST_F(GpioOut, SendsTheRecord) {
  EXPECT_EQ(Driven(R"({"io":3,"value":1,"delay":250})"),
            "EVS_GPIO_CONTROL io=3 value=1 delay=250 timeout=300");
}

TEST_F(GpioOut, SendsTwelveLittleEndianBytes) {
  EXPECT_TRUE(Drive(R"({"io":1,"value":2,"delay":16909060})"));
  ASSERT_EQ(platform().requests.size(), 1U);
  EXPECT_EQ(platform().requests.front().data, std::string("\1\0\0\0\2\0\0\0\4\3\2\1", 12));
  BusHeard();
}

TEST_F(GpioOut, TakesTheValuesZeroOneAndTwo) {
  for (const char* value : {"0", "1", "2"}) {
    EXPECT_EQ(Driven(std::string(R"({"io":2,"value":)") + value + R"(,"delay":100})"),
              std::string("EVS_GPIO_CONTROL io=2 value=") + value + " delay=100 timeout=300");
  }
}

TEST_F(GpioOut, AnyOtherValueBecomesZero) {
  for (const char* value : {"3", "5", "-1", "2147483647", "-2147483648"}) {
    EXPECT_EQ(Driven(std::string(R"({"io":2,"value":)") + value + R"(,"delay":100})"),
              "EVS_GPIO_CONTROL io=2 value=0 delay=100 timeout=300")
        << value;
  }
}

TEST_F(GpioOut, PassesOutputAndDelayOnWhateverTheyAre) {
  EXPECT_EQ(Driven(R"({"io":-7,"value":1,"delay":-100})"),
            "EVS_GPIO_CONTROL io=-7 value=1 delay=-100 timeout=300");
}

TEST_F(GpioOut, ReadsAbsentAndNullMembersAsZero) {
  const std::string zeros = "EVS_GPIO_CONTROL io=0 value=0 delay=0 timeout=300";
  EXPECT_EQ(Driven("{}"), zeros);
  EXPECT_EQ(Driven("null"), zeros);
  EXPECT_EQ(Driven(R"({"io":null,"value":null,"delay":null})"), zeros);
  EXPECT_TRUE(CloudSends("gpio_out", R"({"type":"gpio_out"})"));
  EXPECT_EQ(BusHeard(), zeros);
}

TEST_F(GpioOut, LogsBeforeAndAfterReadingTheRecord) {
  Driven(R"({"io":2,"value":5,"delay":100})");
  EXPECT_EQ(LogLines(6),
            (std::vector<std::string>{"ioctl!", "ioctl @@ gpio(2) eValue(0) delay(100)"}));
  EXPECT_EQ(LoggedBy("DoCmdGpioOut", 6, "ioctl!"), 1U);
}

TEST_F(GpioOut, IsCarriedOutUnderAnyVersion) {
  for (const char* version : {"1.0", "1.1", "", "nonsense"}) {
    EXPECT_TRUE(Drive(R"({"io":1})", version));
    BusHeard();
  }
}

TEST_F(GpioOut, CountsEveryResultButZeroAsSuccess) {
  for (const int result : {1, 2, -1}) {
    Answers("EVS_GPIO_CONTROL", "no json", result);
    EXPECT_TRUE(Drive(R"({"io":1})")) << result;
    BusHeard();
  }
  Answers("EVS_GPIO_CONTROL", "{}", 0);
  EXPECT_FALSE(Drive(R"({"io":1})"));
  BusHeard();
}

TEST_F(GpioOut, RefusesAnotherTypeWithoutALine) {
  for (const char* payload : {R"({"type":5})", R"({"type":"gpio"})", "{}", "[]", "null", "\"x\""}) {
    ForgetLogs();
    EXPECT_FALSE(CloudSends("gpio_out", payload)) << payload;
    EXPECT_EQ(LogLines().size(), 1U) << payload;
  }
}

TEST_F(GpioOut, MovesNothingOnABodyThatIsNoObject) {
  for (const char* body : {"5", "true", "\"x\"", "[]", "[1,2,3]", "1.5"}) {
    ForgetLogs();
    EXPECT_FALSE(Drive(body)) << body;
    EXPECT_EQ(LogLines(6), std::vector<std::string>{"ioctl!"}) << body;
    EXPECT_EQ(LogLines(4), std::vector<std::string>{"invalid body, not json object"}) << body;
    EXPECT_TRUE(LogLines(3).empty()) << body;
  }
}

TEST_F(GpioOut, MovesNothingOnAMemberThatIsNoNumber) {
  for (const char* body : {R"({"io":"1"})", R"({"value":[]})", R"({"delay":{}})",
                           R"({"io":4294967295})", R"({"delay":1e300})"}) {
    ForgetLogs();
    EXPECT_FALSE(Drive(body)) << body;
    EXPECT_EQ(LogLines(3).size(), 1U) << body;
  }
}

TEST_F(GpioOut, LeavesTheResponseAsItIs) {
  response_["kept"] = 1;
  Drive(R"({"io":1})");
  BusHeard();
  EXPECT_EQ(Compact(response_), R"({"kept":1})");
}

class GpioOutWithoutBus : public AdapterTest {};

TEST_F(GpioOutWithoutBus, IsRefusedBeforeTheFirstLine) {
  platform().has_bus = false;
  Start();
  EXPECT_FALSE(CloudSends("gpio_out", R"({"type":"gpio_out","body":{"io":1}})"));
  EXPECT_EQ(LogLines().size(), 1U);  // the request's own line
}

}  // namespace
