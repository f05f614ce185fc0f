// The queue of results that wait for their confirmation.
#include "adapter_test.h"

namespace {

class ResultQueue : public AdapterTest {
 protected:
  void SetUp() override { Start(); }

  void Arrive(unsigned int plate_id) {
    Deliver("BUS_SRV_IVS_RESULT", RecordBytes().PlateId(plate_id));
  }
  unsigned int PublishedPlateId() {
    EXPECT_EQ(PublishedHead(), "ivs_result 11");
    return PublishedPayload()["AlarmInfoPlate"]["result"]["PlateResult"]["plateid"].asUInt();
  }
  /// Confirms once; the plate id that the store is told.
  std::string Confirm() {
    adapter_->OnMessagePublished(11);
    const std::string heard = BusHeard();
    const size_t at = heard.find("\"plate_id\" : ");
    return at == std::string::npos ? heard : heard.substr(at + 13, heard.find(',', at) - at - 13);
  }
};

TEST_F(ResultQueue, PublishesTheNewestOncePerArrival) {
  Arrive(1);
  Arrive(2);
  RunPosted();
  EXPECT_EQ(PublishedPlateId(), 2U);
  EXPECT_EQ(PublishedPlateId(), 2U);
}

TEST_F(ResultQueue, KeepsTwentyAndPublishesTheTwentiethAgain) {
  for (unsigned int id = 1; id <= 20; ++id) {
    Arrive(id);
    RunPosted();
    EXPECT_EQ(PublishedPlateId(), id);
  }
  ForgetLogs();
  Arrive(21);
  EXPECT_EQ(LogLines(),
            std::vector<std::string>{"7  OnDpMessage rcv msg mothod:BUS_SRV_IVS_RESULT "});
  RunPosted();
  EXPECT_EQ(PublishedPlateId(), 20U);
}

TEST_F(ResultQueue, OfAHundredUnconfirmedKeepsTwentyAndDrains) {
  for (unsigned int id = 1; id <= 100; ++id) {
    Arrive(id);
    RunPosted();
    PublishedPlateId();
  }
  for (unsigned int id = 20; id >= 1; --id) {
    EXPECT_EQ(Confirm(), std::to_string(id));
  }
  EXPECT_EQ(Confirm(), "nothing");
  Arrive(101);
  RunPosted();
  EXPECT_EQ(PublishedPlateId(), 101U);
}

TEST_F(ResultQueue, TakesNewResultsAfterAConfirmation) {
  for (unsigned int id = 1; id <= 21; ++id) {
    Arrive(id);
  }
  RunPosted();
  for (int i = 0; i < 21; ++i) {
    EXPECT_EQ(PublishedPlateId(), 20U);
  }
  EXPECT_EQ(Confirm(), "20");
  Arrive(22);
  RunPosted();
  EXPECT_EQ(PublishedPlateId(), 22U);
}

TEST_F(ResultQueue, CopiesTheRecord) {
  std::string body = RecordBytes().PlateId(5);
  Deliver("BUS_SRV_IVS_RESULT", body);
  body.assign(552, 'x');
  RunPosted();
  EXPECT_EQ(PublishedPlateId(), 5U);
}

}  // namespace
