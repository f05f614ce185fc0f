// What a confirmation of a live result sets off.
#include "adapter_test.h"

namespace {

class Confirmation : public AdapterTest {
 protected:
  void SetUp() override {
    Start();
    Arrive(4);
    Arrive(7);
    ForgetLogs();
  }
  void Arrive(unsigned int plate_id) {
    Deliver("BUS_SRV_IVS_RESULT", RecordBytes().PlateId(plate_id));
    RunPosted();
    PublishedPayload();
  }
  static std::string Delivered(unsigned int plate_id) {
    return "BUS_GET_IVS_INFO {\n\t\"body\" : \n\t{\n\t\t\"plate_id\" : " +
           std::to_string(plate_id) +
           ",\n\t\t\"push_status\" : 0\n\t},\n\t\"type\" : \"STP_SET_MQTT_OFFLINE_STATUS\"\n}\n"
           " timeout=5000";
  }
};

TEST_F(Confirmation, ReportsTheNewestAndTakesItOffTheQueue) {
  adapter_->OnMessagePublished(11);
  EXPECT_EQ(BusHeard(), Delivered(7));
  adapter_->OnMessagePublished(11);
  EXPECT_EQ(BusHeard(), Delivered(4));
}

TEST_F(Confirmation, IsLoggedWithItsTag) {
  adapter_->OnMessagePublished(12);
  EXPECT_EQ(LogLines(), std::vector<std::string>{"6 OnMessagePublished tag :12"});
  EXPECT_EQ(LoggedBy("OnMessagePublished", 6, "OnMessagePublished tag :12"), 1U);
}

TEST_F(Confirmation, IsLoggedWithAsMuchOfItsTagAsALongHolds) {
  adapter_->OnMessagePublished(4294967301ULL);  // 2^32 + 5
  EXPECT_EQ(Logged(6, sizeof(long) == 8 ? "OnMessagePublished tag :4294967301"
                                        : "OnMessagePublished tag :5"),
            1U);
}

TEST_F(Confirmation, OfTheSamePlateIdRemovesTheOlderOne) {
  Arrive(4);  // queue: 4, 7, 4
  adapter_->OnMessagePublished(11);
  EXPECT_EQ(BusHeard(), Delivered(4));  // queue: 7, 4
  adapter_->OnMessagePublished(11);
  EXPECT_EQ(BusHeard(), Delivered(4));
  adapter_->OnMessagePublished(11);
  EXPECT_EQ(BusHeard(), Delivered(7));
}

TEST_F(Confirmation, IsIndependentOfTheStoresAnswer) {
  Answers("BUS_GET_IVS_INFO", "", -5);
  adapter_->OnMessagePublished(11);
  EXPECT_EQ(BusHeard(), Delivered(7));
  Answers("BUS_GET_IVS_INFO", "nonsense", 1);
  adapter_->OnMessagePublished(11);
  EXPECT_EQ(BusHeard(), Delivered(4));
}

TEST_F(Confirmation, OfALiveResultWithNoneQueuedDoesNothing) {
  adapter_->OnMessagePublished(11);
  adapter_->OnMessagePublished(11);
  BusHeard();
  BusHeard();
  adapter_->OnMessagePublished(11);
  EXPECT_EQ(BusHeard(), "nothing");
}

TEST_F(Confirmation, OfAnyOtherTagDoesNothingMore) {
  for (unsigned long long tag = 0; tag <= 40; ++tag) {
    if (tag != 11 && tag != 16) {
      adapter_->OnMessagePublished(tag);
    }
  }
  adapter_->OnMessagePublished(18446744073709551615ULL);
  EXPECT_EQ(BusHeard(), "nothing");
  EXPECT_EQ(Waiting(), "nothing");
}

TEST_F(Confirmation, PostsNothingForALiveResult) {
  adapter_->OnMessagePublished(11);
  BusHeard();
  EXPECT_EQ(Waiting(), "nothing");
}

class ConfirmationWithoutStore : public AdapterTest {
 protected:
  /// A database is missing, so that Initialize ends before there is a store.
  void SetUp() override {
    platform().missing_databases = {"usr_data_kvdb"};
    Start();
  }
  std::string Arrive(unsigned int plate_id) {
    Deliver("BUS_SRV_IVS_RESULT", RecordBytes().PlateId(plate_id));
    RunPosted();
    return PublishedPayload()["AlarmInfoPlate"]["result"]["PlateResult"]["plateid"].asString();
  }
};

TEST_F(ConfirmationWithoutStore, TakesTheResultOffTheQueueAllTheSame) {
  for (unsigned int plate_id = 1; plate_id <= 25; ++plate_id) {
    EXPECT_EQ(Arrive(plate_id), std::to_string(plate_id));
    adapter_->OnMessagePublished(11);
  }
  EXPECT_EQ(BusHeard(), "nothing");
}

}  // namespace
