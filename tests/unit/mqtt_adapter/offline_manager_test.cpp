// The manager of undelivered results, by itself.
#include <cstring>
#include <type_traits>

#include "adapter_fixture.h"
#include "mqtt_offline.h"

namespace {

using qex::IvsOfflineInfo;
using qex::MqttOfflineMgr;

static_assert(!std::is_copy_constructible<MqttOfflineMgr>::value, "there is one per adapter");
static_assert(!std::is_copy_assignable<MqttOfflineMgr>::value, "there is one per adapter");

class OfflineManager : public testing::Test {
 protected:
  OfflineManager() : events_(new fake::EventService) {
    fake::ResetPlatform();
    bus_ = tarvex::DpClient::CreateDpClient(events_, tarvex::SocketAddress("127.0.0.1", 6101),
                                            "adapter");
    EXPECT_EQ(manager_.Init(events_, bus_), 200);
  }
  void Queue(unsigned int plate_id) {
    IvsOfflineInfo record = {};
    record.result.plate.plate_id = plate_id;
    manager_.m_offline_records_.push_back(record);
  }
  /// The plate ids of the queue, from its front to its back.
  std::string Queued() const {
    std::string ids;
    for (const IvsOfflineInfo& record : manager_.m_offline_records_) {
      ids += (ids.empty() ? "" : " ") + std::to_string(record.result.plate.plate_id);
    }
    return ids;
  }
  static std::string Record(unsigned int plate_id) {
    std::string bytes(556, '\0');
    memcpy(&bytes[80], &plate_id, sizeof(plate_id));
    return bytes;
  }
  static void StoreReplies(const std::string& reply, int result = 1) {
    fake::ThePlatform().scripted_answers["BUS_GET_IVS_INFO"].push_back({result, reply});
  }
  static std::string Select(const std::string& count, const std::string& id) {
    return "BUS_GET_IVS_INFO {\n\t\"body\" : \n\t{\n\t\t\"count\" : " + count +
           ",\n\t\t\"id\" : " + id +
           "\n\t},\n\t\"type\" : \"STP_SELECT_MQTT_OFFLINE_RECORD\"\n}\n timeout=5000";
  }
  static std::string Delivered(unsigned int plate_id) {
    return "BUS_GET_IVS_INFO {\n\t\"body\" : \n\t{\n\t\t\"plate_id\" : " +
           std::to_string(plate_id) +
           ",\n\t\t\"push_status\" : 0\n\t},\n\t\"type\" : \"STP_SET_MQTT_OFFLINE_STATUS\"\n}\n"
           " timeout=5000";
  }

  boost::shared_ptr<fake::EventService> events_;
  boost::shared_ptr<tarvex::DpClient> bus_;
  MqttOfflineMgr manager_;
};

TEST_F(OfflineManager, StartsWithAHundredToFetchFromIdZero) {
  MqttOfflineMgr fresh;
  EXPECT_FALSE(fresh.m_event_service_);
  EXPECT_FALSE(fresh.m_dp_client_);
  EXPECT_TRUE(fresh.m_offline_records_.empty());
  EXPECT_EQ(fresh.m_remain_count_, 100U);
  EXPECT_EQ(fresh.m_min_id_, 0U);
}

TEST_F(OfflineManager, InitReplacesBothPointers) {
  EXPECT_EQ(manager_.m_event_service_, events_);
  EXPECT_EQ(manager_.m_dp_client_, bus_);
  EXPECT_EQ(manager_.Init(nullptr, nullptr), 200);
  EXPECT_FALSE(manager_.m_event_service_);
  EXPECT_FALSE(manager_.m_dp_client_);
}

TEST_F(OfflineManager, KnowsItsOwner) {
  const boost::shared_ptr<MqttOfflineMgr> owner(new MqttOfflineMgr);
  EXPECT_EQ(owner->shared_from_this(), owner);
}

TEST_F(OfflineManager, CountsTheQueueWithoutARequest) {
  Queue(1);
  Queue(2);
  Queue(3);
  StoreReplies(R"({"body":{"offline_count":9}})");
  EXPECT_EQ(manager_.GetCountOfflineRecords(), 3);
  EXPECT_EQ(BusHeard(), "nothing");
  EXPECT_TRUE(LogLines().empty());
}

TEST_F(OfflineManager, CountsTheStoreWithAnEmptyQueue) {
  StoreReplies(R"({"body":{"offline_count":9}})", -1);
  EXPECT_EQ(manager_.GetCountOfflineRecords(), 9);
  EXPECT_EQ(BusHeard(),
            "BUS_GET_IVS_INFO {\n\t\"type\" : \"STP_GET_MQTT_OFFLINE_COUNT\"\n}\n timeout=5000");
  EXPECT_EQ(LogLines(),
            std::vector<std::string>{"mqtt_offline GetCountOfflineRecords 6 mqtt offline count 9"});
}

TEST_F(OfflineManager, CountsZeroWithoutALineWhereTheReplyHasNoInteger) {
  for (const char* reply : {"", "no json", "{}", R"({"body":{"offline_count":"7"}})",
                            R"({"body":{"offline_count":4294967295}})", "[]", "7"}) {
    StoreReplies(reply);
    EXPECT_EQ(manager_.GetCountOfflineRecords(), 0) << reply;
  }
  EXPECT_TRUE(LogLines().empty());
}

TEST_F(OfflineManager, AsksForFiveAtTheMost) {
  for (const auto& [remaining, asked] : std::vector<std::pair<uint32_t, std::string>>{
           {100, "5"}, {6, "5"}, {5, "5"}, {4, "4"}, {3, "3"}, {1, "1"}, {4294967295U, "5"}}) {
    manager_.m_remain_count_ = remaining;
    manager_.StartCheckOfflineRecords();
    EXPECT_EQ(BusHeard(), Select(asked, "0")) << remaining;
  }
}

TEST_F(OfflineManager, CarriesTheIdAndNeverChangesIt) {
  manager_.m_min_id_ = 4294967295U;
  StoreReplies(Record(7));
  manager_.StartCheckOfflineRecords();
  EXPECT_EQ(BusHeard(), Select("5", "4294967295"));
  EXPECT_EQ(manager_.m_min_id_, 4294967295U);
}

TEST_F(OfflineManager, AsksNothingWithNoneLeftToFetch) {
  manager_.m_remain_count_ = 0;
  EXPECT_EQ(manager_.StartCheckOfflineRecords(), 0);
  EXPECT_EQ(BusHeard(), "nothing");
  EXPECT_TRUE(LogLines().empty());
}

TEST_F(OfflineManager, HasTheFirstRecordOfAReplyAtTheBack) {
  StoreReplies(Record(1) + Record(2));
  EXPECT_EQ(manager_.StartCheckOfflineRecords(), 2);
  EXPECT_EQ(Queued(), "2 1");
  EXPECT_EQ(manager_.m_remain_count_, 98U);
  EXPECT_EQ(LogLines(),
            std::vector<std::string>{
                "mqtt_offline StartCheckOfflineRecords 6 get 2 mqtt offline record from db."});
}

TEST_F(OfflineManager, AppendsBehindWhatIsQueued) {
  Queue(9);
  StoreReplies(Record(1) + Record(2));
  manager_.StartCheckOfflineRecords();
  EXPECT_EQ(Queued(), "9 2 1");
}

TEST_F(OfflineManager, CopiesARecordByteForByte) {
  std::string bytes;
  for (int i = 0; i < 556; ++i) {
    bytes += static_cast<char>(i * 7 + i / 256);
  }
  StoreReplies(bytes);
  manager_.StartCheckOfflineRecords();
  EXPECT_EQ(memcmp(manager_.GetFirstOfflieRecord(), bytes.data(), 556), 0);
}

TEST_F(OfflineManager, DropsAReplyOfOddLengthWhole) {
  for (const size_t size : {1U, 555U, 1000U, 1113U}) {
    StoreReplies(std::string(size, 'A'));
    EXPECT_EQ(manager_.StartCheckOfflineRecords(), 0) << size;
  }
  EXPECT_EQ(manager_.m_remain_count_, 100U);
  EXPECT_EQ(Queued(), "");
  EXPECT_TRUE(LogLines().empty());
}

TEST_F(OfflineManager, LogsAnEmptyReplyAsNoRecords) {
  EXPECT_EQ(manager_.StartCheckOfflineRecords(), 0);
  EXPECT_EQ(manager_.m_remain_count_, 100U);
  EXPECT_EQ(LogLines(),
            std::vector<std::string>{
                "mqtt_offline StartCheckOfflineRecords 6 get 0 mqtt offline record from db."});
}

TEST_F(OfflineManager, WrapsTheCountWhereMoreCameThanWereLeft) {
  manager_.m_remain_count_ = 1;
  StoreReplies(Record(1) + Record(2) + Record(3));
  EXPECT_EQ(manager_.StartCheckOfflineRecords(), 3);
  EXPECT_EQ(manager_.m_remain_count_, 4294967294U);
  EXPECT_EQ(Queued(), "3 2 1");
}

TEST_F(OfflineManager, TakesMoreThanFiveWhereTheyCome) {
  std::string records;
  for (unsigned int i = 1; i <= 7; ++i) {
    records += Record(i);
  }
  StoreReplies(records);
  EXPECT_EQ(manager_.StartCheckOfflineRecords(), 7);
  EXPECT_EQ(Queued(), "7 6 5 4 3 2 1");
  EXPECT_EQ(manager_.m_remain_count_, 93U);
}

TEST_F(OfflineManager, GivesTheBackOfTheQueueAndKeepsIt) {
  Queue(1);
  Queue(2);
  ASSERT_NE(manager_.GetFirstOfflieRecord(), nullptr);
  EXPECT_EQ(manager_.GetFirstOfflieRecord()->result.plate.plate_id, 2U);
  EXPECT_EQ(Queued(), "1 2");
  EXPECT_EQ(BusHeard(), "nothing");
}

TEST_F(OfflineManager, FetchesTheFirstRecordWhereTheQueueIsEmpty) {
  StoreReplies(Record(1) + Record(2));
  ASSERT_NE(manager_.GetFirstOfflieRecord(), nullptr);
  EXPECT_EQ(manager_.GetFirstOfflieRecord()->result.plate.plate_id, 1U);
  EXPECT_EQ(BusHeard(), Select("5", "0"));
  EXPECT_EQ(BusHeard(), "nothing");
}

TEST_F(OfflineManager, GivesNothingWhereNoneIsToBeHad) {
  EXPECT_EQ(manager_.GetFirstOfflieRecord(), nullptr);
  manager_.m_remain_count_ = 0;
  StoreReplies(Record(1));
  BusHeard();
  EXPECT_EQ(manager_.GetFirstOfflieRecord(), nullptr);
  EXPECT_EQ(BusHeard(), "nothing");
}

TEST_F(OfflineManager, MarksTheGivenIdButRemovesTheCurrentRecord) {
  Queue(5);
  Queue(9);
  EXPECT_EQ(manager_.SetOfflinePushSuccess(5, true), 200);
  EXPECT_EQ(BusHeard(), Delivered(5));
  EXPECT_EQ(Queued(), "5");
}

TEST_F(OfflineManager, RemovesAnEarlierRecordOfTheSameId) {
  Queue(9);
  Queue(5);
  Queue(9);
  IvsOfflineInfo* current = manager_.GetFirstOfflieRecord();
  manager_.SetOfflinePushSuccess(9, true);
  EXPECT_EQ(Queued(), "5 9");
  EXPECT_EQ(manager_.GetFirstOfflieRecord(), current);  // it is the other one that went
}

TEST_F(OfflineManager, MarksALiveResultWithoutTouchingTheQueue) {
  Queue(9);
  EXPECT_EQ(manager_.SetOfflinePushSuccess(4294967295U, false), 200);
  EXPECT_EQ(BusHeard(), Delivered(4294967295U));
  EXPECT_EQ(Queued(), "9");
}

TEST_F(OfflineManager, MarksWithAnEmptyQueueAndFetchesNothing) {
  StoreReplies("no json", 0);
  EXPECT_EQ(manager_.SetOfflinePushSuccess(5, true), 200);
  EXPECT_EQ(BusHeard(), Delivered(5));
  EXPECT_EQ(BusHeard(), "nothing");
}

TEST_F(OfflineManager, ClearsTheStoreButNotTheQueue) {
  Queue(9);
  manager_.m_min_id_ = 3;
  StoreReplies("", -1);
  EXPECT_EQ(manager_.ClearAllOfflineRecord(), 200);
  EXPECT_EQ(BusHeard(),
            "BUS_GET_IVS_INFO {\n\t\"type\" : \"STP_CLEAR_MQTT_OFFLINE\"\n}\n timeout=5000");
  EXPECT_EQ(Queued(), "9");
  EXPECT_EQ(manager_.m_remain_count_, 100U);
  EXPECT_EQ(manager_.m_min_id_, 3U);
}

TEST_F(OfflineManager, WithoutABusClientSurvivesEveryCall) {
  manager_.Init(events_, nullptr);
  EXPECT_EQ(manager_.GetCountOfflineRecords(), 0);
  EXPECT_EQ(manager_.StartCheckOfflineRecords(), 0);
  EXPECT_EQ(manager_.GetFirstOfflieRecord(), nullptr);
  EXPECT_EQ(manager_.SetOfflinePushSuccess(1, true), 200);
  EXPECT_EQ(manager_.ClearAllOfflineRecord(), 200);
}

class OfflineCount : public AdapterFixture {};

TEST_F(OfflineCount, WithoutAManagerPublishesNothing) {
  EXPECT_EQ(adapter_.OnNotifyOfflineCount(), 200);
  EXPECT_EQ(Published(), "nothing");
}

TEST_F(OfflineCount, IsPublishedWhateverTheStoreSays) {
  Start();
  Answers("BUS_GET_IVS_INFO", "no json", -1);
  EXPECT_EQ(adapter_.OnNotifyOfflineCount(), 200);
  EXPECT_EQ(Published(), R"(offline_record 17 {"body":{"offline_record":0}})");
}

}  // namespace
