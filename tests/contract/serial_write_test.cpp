// The request "serial_data": bytes from the cloud to the serial channels.
#include "adapter_test.h"
#include "tarvex/base64.h"

namespace {

class SerialWrite : public AdapterTest {
 protected:
  void SetUp() override {
    Start();
    Answers("EVS_RS485_WRITE", "");
  }
  bool Write(const std::string& chunks, const std::string& version = "1.0") {
    return CloudSends("serial_data",
                      R"({"type":"serial_data","body":{"serialData":)" + chunks + "}}", version);
  }
};

TEST_F(SerialWrite, SendsTheDecodedBytesBehindTheHeader) {
  EXPECT_TRUE(Write(R"([{"serialChannel":1,"data":"aGVsbG8=","dataLen":5}])"));
  EXPECT_EQ(BusHeard(), "EVS_RS485_WRITE word=111 channel=1 data=hello timeout=300");
  EXPECT_EQ(LoggedBy("SendSerialDataToEvt", 6, "SendSerialDataToEvt:13."), 1U);
}

TEST_F(SerialWrite, SendsTheHeaderInLittleEndian) {
  EXPECT_TRUE(Write(R"([{"serialChannel":1,"data":"AAE="}])"));
  ASSERT_EQ(platform().requests.size(), 1U);
  EXPECT_EQ(platform().requests.front().data, std::string("\x6F\0\0\0\1\0\0\0\0\1", 10));
  BusHeard();
}

TEST_F(SerialWrite, SendsChunksInTheirOrder) {
  EXPECT_TRUE(Write(R"([{"serialChannel":1,"data":"YQ=="},{"serialChannel":0,"data":"Yg=="},)"
                    R"({"serialChannel":1,"data":"Yw=="}])"));
  EXPECT_EQ(BusHeard(), "EVS_RS485_WRITE word=111 channel=1 data=a timeout=300");
  EXPECT_EQ(BusHeard(), "EVS_RS485_WRITE word=111 channel=0 data=b timeout=300");
  EXPECT_EQ(BusHeard(), "EVS_RS485_WRITE word=111 channel=1 data=c timeout=300");
}

TEST_F(SerialWrite, TakesAnEmptyListAndSendsNothing) {
  EXPECT_TRUE(Write("[]"));
  EXPECT_EQ(BusHeard(), "nothing");
  EXPECT_EQ(LogLines().size(), 1U);  // the request's own line
}

TEST_F(SerialWrite, SkipsAChannelThatDoesNotExist) {
  EXPECT_TRUE(Write(R"([{"serialChannel":2,"data":"YQ=="},{"serialChannel":1,"data":"Yg=="}])"));
  EXPECT_EQ(BusHeard(), "EVS_RS485_WRITE word=111 channel=1 data=b timeout=300");
  EXPECT_EQ(LogLines(3), std::vector<std::string>{"Err Channel:2."});
  EXPECT_EQ(LoggedBy("SendSerialDataToEvt", 3, "Err Channel:2."), 1U);
}

TEST_F(SerialWrite, SkipsANegativeChannel) {
  EXPECT_TRUE(Write(R"([{"serialChannel":-1,"data":"YQ=="}])"));
  EXPECT_EQ(LogLines(3), std::vector<std::string>{"Err Channel:-1."});
}

TEST_F(SerialWrite, ChecksTheChannelBeforeTheData) {
  EXPECT_TRUE(Write(R"([{"serialChannel":5,"data":""}])"));
  EXPECT_EQ(LogLines(3), std::vector<std::string>{"Err Channel:5."});
}

TEST_F(SerialWrite, SkipsAChunkWithoutData) {
  EXPECT_TRUE(Write(R"([{"serialChannel":0},{"serialChannel":0,"data":""},)"
                    R"({"serialChannel":0,"data":"?"},{"serialChannel":1,"data":"Yg=="}])"));
  EXPECT_EQ(LogLines(3), (std::vector<std::string>(3, "Err Data Is Null.")));
  EXPECT_EQ(LoggedBy("SendSerialDataToEvt", 3, "Err Data Is Null."), 3U);
  EXPECT_EQ(BusHeard(), "EVS_RS485_WRITE word=111 channel=1 data=b timeout=300");
}

TEST_F(SerialWrite, ReadsAMissingChannelAsZero) {
  EXPECT_TRUE(Write(R"([{"data":"YQ=="},{"serialChannel":null,"data":"Yg=="}])"));
  EXPECT_EQ(BusHeard(), "EVS_RS485_WRITE word=111 channel=0 data=a timeout=300");
  EXPECT_EQ(BusHeard(), "EVS_RS485_WRITE word=111 channel=0 data=b timeout=300");
}

TEST_F(SerialWrite, CutsAfterAThousandAndSixteenBytes) {
  for (const size_t size : {1016U, 1017U, 2000U}) {
    ForgetLogs();
    const std::string data(size, 'x');
    EXPECT_TRUE(Write(R"([{"serialChannel":0,"data":")" + tarvex::Base64::Encode(data) + "\"}]"));
    EXPECT_EQ(BusHeard(),
              "EVS_RS485_WRITE word=111 channel=0 data=" + std::string(1016, 'x') + " timeout=300");
    EXPECT_EQ(Logged(6, "SendSerialDataToEvt:1024."), 1U);
  }
}

TEST_F(SerialWrite, SendsAThousandAndFifteenBytesWhole) {
  EXPECT_TRUE(Write(R"([{"data":")" + tarvex::Base64::Encode(std::string(1015, 'x')) + "\"}]"));
  BusHeard();
  EXPECT_EQ(Logged(6, "SendSerialDataToEvt:1023."), 1U);
}

TEST_F(SerialWrite, IgnoresTheStatedLength) {
  for (const char* length : {"0", "1", "-5", "5000", "\"3\"", "null", "[]", "1e300"}) {
    EXPECT_TRUE(Write(std::string(R"([{"data":"aGVsbG8=","dataLen":)") + length + "}]"));
    EXPECT_EQ(BusHeard(), "EVS_RS485_WRITE word=111 channel=0 data=hello timeout=300") << length;
  }
}

TEST_F(SerialWrite, SendsWhatDecodingGaveUpToTheFirstError) {
  // Without its padding, or behind something that is no Base64: what came before it.
  EXPECT_TRUE(Write(R"([{"data":"YWJjZGVm?"},{"data":"YWJj ZGVm"}])"));
  EXPECT_EQ(BusHeard(), "EVS_RS485_WRITE word=111 channel=0 data=abcdef timeout=300");
  EXPECT_EQ(BusHeard(), "EVS_RS485_WRITE word=111 channel=0 data=abc timeout=300");
}

TEST_F(SerialWrite, ReadsNumbersAndTruthValuesAsTheTextTheyAreWrittenIn) {
  const std::vector<std::pair<std::string, std::string>> rows = {
      {"1234", "\xD7\x6D\xF8"}, {"true", "\xB6\xBB\x9E"}, {"12345678", "\xD7\x6D\xF8\xE7\xAE\xFC"}};
  for (const auto& [data, bytes] : rows) {
    EXPECT_TRUE(Write(R"([{"data":)" + data + "}]"));
    EXPECT_EQ(BusHeard(), "EVS_RS485_WRITE word=111 channel=0 data=" + bytes + " timeout=300");
  }
}

TEST_F(SerialWrite, SkipsDataThatIsNoText) {
  EXPECT_TRUE(Write(R"([{"data":null},{"data":[]},{"data":["YQ=="]},{"data":{"a":"YQ=="}}])"));
  EXPECT_EQ(LogLines(3), (std::vector<std::string>(4, "Err Data Is Null.")));
}

TEST_F(SerialWrite, DecodesStrictlyWithPaddingToTheEndOfTheText) {
  Write(R"([{"data":"YQ=="}])");
  BusHeard();
  EXPECT_EQ(platform().decode_flags, std::vector<int>{21});
}

TEST_F(SerialWrite, CountsAsDoneWhateverBecomesOfTheRequests) {
  for (const int result : {0, -1}) {
    ForgetLogs();
    Answers("EVS_RS485_WRITE", "", result);
    EXPECT_TRUE(Write(R"([{"data":"YQ=="},{"data":"Yg=="}])"));
    BusHeard();
    BusHeard();
    EXPECT_EQ(Logged(6, "SendSerialDataToEvt:9."), 2U);
    EXPECT_EQ(LogLines(3).size(), 0U);
  }
}

TEST_F(SerialWrite, IsServedUnderAnyVersion) {
  for (const char* version : {"1.1", "", "x"}) {
    EXPECT_TRUE(Write(R"([{"data":"YQ=="}])", version));
    BusHeard();
  }
}

TEST_F(SerialWrite, RefusesAnotherTypeWithoutALine) {
  for (const char* payload :
       {R"({"type":5,"body":{"serialData":[]}})", R"({"type":"serial","body":{"serialData":[]}})",
        R"({"body":{"serialData":[]}})", "[]", "null", "\"serial_data\""}) {
    ForgetLogs();
    EXPECT_FALSE(CloudSends("serial_data", payload)) << payload;
    EXPECT_EQ(LogLines().size(), 1U);
  }
}

TEST_F(SerialWrite, RefusesWhatIsNoListWithoutALine) {
  for (const char* payload :
       {R"({"type":"serial_data"})", R"({"type":"serial_data","body":null})",
        R"({"type":"serial_data","body":[]})", R"({"type":"serial_data","body":{}})",
        R"({"type":"serial_data","body":{"serialData":{}}})",
        R"({"type":"serial_data","body":{"serialData":null}})",
        R"({"type":"serial_data","body":{"serialData":"YQ=="}})"}) {
    ForgetLogs();
    EXPECT_FALSE(CloudSends("serial_data", payload)) << payload;
    EXPECT_EQ(LogLines().size(), 1U);
  }
}

TEST_F(SerialWrite, TriesEveryElementWhateverItIs) {
  EXPECT_TRUE(Write(R"([null,5,"x",[],{},{"serialChannel":"0","data":"YQ=="},)"
                    R"({"serialChannel":0,"data":5},{"serialChannel":[],"data":{}},)"
                    R"({"serialChannel":1,"data":"Yg=="}])"));
  EXPECT_EQ(LogLines(3),
            (std::vector<std::string>{"Err Data Is Null.", "Err Data Is Null.", "Err Data Is Null.",
                                      "Err Data Is Null.", "Err Data Is Null.", "Err Channel:-1.",
                                      "Err Data Is Null.", "Err Channel:-1."}));
  EXPECT_EQ(BusHeard(), "EVS_RS485_WRITE word=111 channel=1 data=b timeout=300");
}

TEST_F(SerialWrite, LeavesTheResponseAsItIs) {
  response_["kept"] = 1;
  Write(R"([{"data":"YQ=="}])");
  BusHeard();
  EXPECT_EQ(Compact(response_), R"({"kept":1})");
}

class SerialWriteWithoutBus : public AdapterTest {};

TEST_F(SerialWriteWithoutBus, IsLoggedAllTheSame) {
  platform().has_bus = false;
  Start();
  EXPECT_TRUE(CloudSends("serial_data",
                         R"({"type":"serial_data","body":{"serialData":[{"data":"YQ=="}]}})"));
  EXPECT_EQ(Logged(6, "SendSerialDataToEvt:9."), 1U);
}

}  // namespace
