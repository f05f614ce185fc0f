#include "adapter_test.h"

namespace {

class CheckOfflineRecord : public AdapterTest {
 protected:
  void SetUp() override { Start(); }
  bool Check(const std::string& body, const std::string& version = "1.0") {
    return CloudSends("check_offline_record",
                      R"({"type":"check_offline_record","body":)" + body + "}", version);
  }
  /// A store that counts 9 records and hands out `records` on the next fetch.
  void StoreHolds(const std::string& records) {
    AnswersNext("BUS_GET_IVS_INFO", R"({"body":{"offline_count":9}})");
    AnswersNext("BUS_GET_IVS_INFO", records);
  }
  static std::string Record(unsigned int plate_id) {
    return RecordBytes().PlateId(plate_id).str() + std::string(4, '\0');
  }
  /// Takes a delivery step; the request that fetches from the store, or "nothing".
  std::string Fetch() {
    RunPosted();
    BusHeard();
    return BusHeard();
  }
  static std::string Select(const std::string& count, const std::string& id) {
    return "BUS_GET_IVS_INFO {\n\t\"body\" : \n\t{\n\t\t\"count\" : " + count +
           ",\n\t\t\"id\" : " + id +
           "\n\t},\n\t\"type\" : \"STP_SELECT_MQTT_OFFLINE_RECORD\"\n}\n timeout=5000";
  }
};

TEST_F(CheckOfflineRecord, PushPostsOneStepAtOnce) {
  EXPECT_TRUE(Check(R"({"enable":"push","max_count":10,"min_id":0})"));
  EXPECT_EQ(Waiting(), "199402@0");
  EXPECT_FALSE(events_->pending.front().message.data);
  EXPECT_EQ(BusHeard(), "nothing");
  EXPECT_EQ(LogLines().size(), 1U);  // the request's own line
}

TEST_F(CheckOfflineRecord, PushSetsHowManyMayBeFetched) {
  for (const auto& [given, asked] :
       std::vector<std::pair<std::string, std::string>>{{"3", "3"}, {"5", "5"}, {"6", "5"}}) {
    StoreHolds("");
    Check(R"({"enable":"push","max_count":)" + given + "}");
    EXPECT_EQ(Fetch(), Select(asked, "0"));
  }
}

TEST_F(CheckOfflineRecord, PushWithANegativeCountKeepsTheLimit) {
  Check(R"({"enable":"push","max_count":2})");
  Check(R"({"enable":"push","max_count":-1})");
  EXPECT_EQ(Waiting(), "199402@0, 199402@0");
  events_->pending.pop_front();
  StoreHolds("");
  EXPECT_EQ(Fetch(), Select("2", "0"));
}

TEST_F(CheckOfflineRecord, PushWithANegativeCountStartsFromAHundred) {
  StoreHolds("");
  EXPECT_TRUE(Check(R"({"enable":"push","max_count":-1})"));
  EXPECT_EQ(Fetch(), Select("5", "0"));
}

TEST_F(CheckOfflineRecord, PushWithANegativeCountKeepsTheQueue) {
  StoreHolds(Record(1) + Record(2));
  Check(R"({"enable":"push","max_count":2})");
  Fetch();
  PublishedPayload();
  Check(R"({"enable":"push","max_count":-1})");
  RunPosted();
  EXPECT_EQ(BusHeard(), "nothing");  // from the queue, without a request
  EXPECT_EQ(PublishedHead(), "ivs_result 16");
  PublishedPayload();
}

TEST_F(CheckOfflineRecord, PushWithoutACountFetchesNothingAndEmptiesTheQueue) {
  StoreHolds(Record(1) + Record(2));
  Check(R"({"enable":"push","max_count":2})");
  Fetch();
  PublishedPayload();
  EXPECT_TRUE(Check(R"({"enable":"push"})"));
  AnswersNext("BUS_GET_IVS_INFO", R"({"body":{"offline_count":9}})");
  EXPECT_EQ(Fetch(), "nothing");
  EXPECT_EQ(Waiting(), "199403@5000");
}

TEST_F(CheckOfflineRecord, PushWithACountKeepsTheQueue) {
  StoreHolds(Record(1) + Record(2));
  Check(R"({"enable":"push","max_count":2})");
  Fetch();
  PublishedPayload();
  Check(R"({"enable":"push","max_count":1})");
  RunPosted();
  EXPECT_EQ(BusHeard(), "nothing");
  EXPECT_EQ(PublishedHead(), "ivs_result 16");
  PublishedPayload();
}

TEST_F(CheckOfflineRecord, PushSetsTheIdThatEveryFetchCarries) {
  for (const char* min_id : {"7", "0", "-3"}) {
    StoreHolds("");
    Check(std::string(R"({"enable":"push","max_count":9,"min_id":)") + min_id + "}");
    EXPECT_EQ(Fetch(), Select("5", "7")) << min_id;
  }
  StoreHolds("");
  Check(R"({"enable":"push","max_count":9,"min_id":1})");
  EXPECT_EQ(Fetch(), Select("5", "1"));
}

TEST_F(CheckOfflineRecord, StopEmptiesTheQueueAndFetchesNoMore) {
  StoreHolds(Record(1) + Record(2));
  Check(R"({"enable":"push","max_count":5})");
  Fetch();
  PublishedPayload();
  EXPECT_TRUE(Check(R"({"enable":"stop"})"));
  EXPECT_EQ(BusHeard(), "nothing");
  EXPECT_EQ(Waiting(), "nothing");
  adapter_->OnMessagePublished(16);
  EXPECT_EQ(BusHeard(), "nothing");
  EXPECT_EQ(Waiting(), "nothing");
}

TEST_F(CheckOfflineRecord, StopLeavesAPostedStepThatThenEndsTheRun) {
  Check(R"({"enable":"push","max_count":5})");
  Check(R"({"enable":"stop"})");
  EXPECT_EQ(Waiting(), "199402@0");
  AnswersNext("BUS_GET_IVS_INFO", R"({"body":{"offline_count":9}})");
  EXPECT_EQ(Fetch(), "nothing");
  EXPECT_EQ(Waiting(), "199403@5000");
}

TEST_F(CheckOfflineRecord, ClearEmptiesTheStore) {
  EXPECT_TRUE(Check(R"({"enable":"clear"})"));
  EXPECT_EQ(BusHeard(),
            "BUS_GET_IVS_INFO {\n\t\"type\" : \"STP_CLEAR_MQTT_OFFLINE\"\n}\n timeout=5000");
  EXPECT_EQ(Waiting(), "nothing");
}

TEST_F(CheckOfflineRecord, ClearKeepsQueueAndLimit) {
  StoreHolds(Record(1));
  Check(R"({"enable":"push","max_count":3,"min_id":7})");
  Fetch();
  PublishedPayload();
  Check(R"({"enable":"clear"})");
  BusHeard();
  adapter_->OnMessagePublished(16);  // the queued record is still the current one
  EXPECT_NE(BusHeard(), "nothing");
  StoreHolds("");
  events_->Tick(5000);
  BusHeard();
  EXPECT_EQ(BusHeard(), Select("2", "7"));
}

TEST_F(CheckOfflineRecord, AnythingElseIsAcceptedAndDoesNothing) {
  for (const char* body : {R"({"enable":"start","max_count":2})", R"({"enable":""})",
                           R"({"enable":"Push"})", "{}", "null", "5", "[]", R"({"enable":null})",
                           R"({"enable":5})", R"({"enable":["push"]})", R"({"enable":{}})"}) {
    EXPECT_TRUE(Check(body)) << body;
  }
  EXPECT_TRUE(CloudSends("check_offline_record", R"({"type":"check_offline_record"})"));
  EXPECT_EQ(BusHeard(), "nothing");
  EXPECT_EQ(Waiting(), "nothing");
  EXPECT_EQ(LogLines(3).size(), 0U);
}

TEST_F(CheckOfflineRecord, ACountOrIdThatIsNoNumberChangesNothing) {
  for (const char* body :
       {R"({"enable":"push","max_count":"5"})", R"({"enable":"push","max_count":4294967295})",
        R"({"enable":"push","max_count":2,"min_id":[]})"}) {
    ForgetLogs();
    EXPECT_FALSE(Check(body)) << body;
    EXPECT_EQ(Waiting(), "nothing");
    EXPECT_EQ(LogLines(3).size(), 1U);
  }
  StoreHolds("");
  Check(R"({"enable":"push","max_count":-1})");
  EXPECT_EQ(Fetch(), Select("5", "0"));
}

TEST_F(CheckOfflineRecord, RefusesAnotherVersionAndChangesNothing) {
  for (const char* version : {"1.1", "", "1"}) {
    EXPECT_FALSE(Check(R"({"enable":"push","max_count":2,"min_id":9})", version));
  }
  EXPECT_EQ(Waiting(), "nothing");
  EXPECT_EQ(LogLines().size(), 3U);
  StoreHolds("");
  Check(R"({"enable":"push","max_count":-1})");
  EXPECT_EQ(Fetch(), Select("5", "0"));
}

TEST_F(CheckOfflineRecord, SaysUnderItsOwnNameWhatIsWrongWithThePayload) {
  EXPECT_FALSE(CloudSends("check_offline_record", "[]"));
  EXPECT_EQ(LoggedBy("DoCmdSendOffline", 4, "invalid payload, not json object"), 1U);
  EXPECT_FALSE(CloudSends("check_offline_record", "{}"));
  EXPECT_EQ(LoggedBy("DoCmdSendOffline", 4, "payload parameter is incomplete and type is missing"),
            1U);
}

TEST_F(CheckOfflineRecord, RefusesAnotherTypeWithoutALine) {
  EXPECT_FALSE(
      CloudSends("check_offline_record", R"({"type":"offline_record","body":{"enable":"push"}})"));
  EXPECT_FALSE(CloudSends("check_offline_record", R"({"type":5,"body":{"enable":"push"}})"));
  EXPECT_EQ(LogLines().size(), 2U);
  EXPECT_EQ(Waiting(), "nothing");
}

TEST_F(CheckOfflineRecord, LeavesTheResponseAsItIs) {
  response_["kept"] = 1;
  for (const char* enable : {"push", "stop", "clear", "x"}) {
    Check(std::string(R"({"enable":")") + enable + "\"}");
  }
  BusHeard();
  CloudSends("check_offline_record", "[]");
  EXPECT_EQ(Compact(response_), R"({"kept":1})");
}

class CheckOfflineRecordWithoutBus : public CheckOfflineRecord {
 protected:
  void SetUp() override {
    platform().has_bus = false;
    Start();
  }
};

TEST_F(CheckOfflineRecordWithoutBus, RefusesWhatItCannotCarryOut) {
  for (const char* enable : {"push", "stop", "clear"}) {
    EXPECT_FALSE(Check(std::string(R"({"enable":")") + enable + "\"}")) << enable;
  }
  EXPECT_EQ(Waiting(), "nothing");
}

TEST_F(CheckOfflineRecordWithoutBus, AcceptsWhatAsksForNothing) {
  for (const char* body : {R"({"enable":"x"})", R"({"enable":5})", "{}", "null", "[]"}) {
    EXPECT_TRUE(Check(body)) << body;
  }
  EXPECT_FALSE(Check("{}", "1.1"));
  EXPECT_FALSE(CloudSends("check_offline_record", R"({"type":"x"})"));
}

}  // namespace
