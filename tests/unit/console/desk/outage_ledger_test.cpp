#include "console/desk/outage_ledger.h"

#include <gtest/gtest.h>

namespace console {
namespace {

class Outage : public testing::Test {
 protected:
  void Trouble(bool is_trouble) { ledger_.OnTrouble(is_trouble, now_us_); }
  void Stored(std::uint32_t id) { ledger_.OnStored("CAM1", id); }
  void Arrived(std::uint32_t id) { ledger_.OnArrived("CAM1", id); }
  void Marked(std::uint32_t id) { ledger_.OnMarkedAsDelivered("CAM1", id, now_us_); }
  std::string After(int seconds) {
    now_us_ += seconds * kSecond_us;
    return ledger_.OnTime(now_us_).value_or("");
  }
  std::string Line() { return ledger_.ToJson(now_us_)["line"].asString(); }

  OutageLedger ledger_;
  Time_us now_us_ = kSecond_us;
};

TEST_F(Outage, WithoutOneThereIsNothingToShow) {
  Stored(1);
  EXPECT_TRUE(ledger_.ToJson(now_us_).isNull());
  EXPECT_EQ(After(10), "");
}

TEST_F(Outage, EndsWhenAllOfItsResultsHaveArrived) {
  Stored(1);
  Trouble(true);
  Stored(2);
  Stored(3);
  EXPECT_EQ(Line(),
            "Until now: 2 results stored, 0 arrived, 2 still in the store, nothing was "
            "lost, nothing came twice.");
  EXPECT_EQ(After(100), "");
  Trouble(false);
  Arrived(2);
  EXPECT_EQ(After(10), "");
  Arrived(3);
  EXPECT_EQ(After(1),
            "The outage is over: 2 results stored, 2 arrived, nothing was lost, nothing "
            "came twice.");
  EXPECT_EQ(After(1), "");  // said once
}

TEST_F(Outage, WaitsForAMomentAfterEverythingIsWhole) {
  Trouble(true);
  Trouble(false);
  EXPECT_EQ(After(2), "");
  EXPECT_NE(After(2), "");
}

TEST_F(Outage, CountsWhatCameTwice) {
  Trouble(true);
  Arrived(1);  // stored before; its acknowledgement was lost
  Arrived(1);
  Trouble(false);
  EXPECT_EQ(After(5),
            "The outage is over: 0 results stored, 0 arrived, nothing was lost, 1 result "
            "came twice.");
}

TEST_F(Outage, CallsAResultLostThatIsMarkedAndNeverCame) {
  Trouble(true);
  Stored(1);
  Marked(1);
  Trouble(false);
  EXPECT_EQ(After(4), "");  // it may be on its way
  EXPECT_EQ(After(2),
            "The outage is over: 1 result stored, 0 arrived, 1 lost, nothing came twice.");
}

TEST_F(Outage, CountsWhatTheStoreHadNoRoomFor) {
  ledger_.OnRemoved("CAM1", 3);
  Trouble(true);
  Stored(1);
  Stored(2);
  ledger_.OnRemoved("CAM1", 4);
  EXPECT_EQ(ledger_.ToJson(now_us_)["lost"].asInt(), 1);
  EXPECT_EQ(ledger_.ToJson(now_us_)["left"].asInt(), 1);
}

TEST_F(Outage, BeginsAfreshAfterItsEnd) {
  Trouble(true);
  Stored(1);
  Arrived(1);
  Trouble(false);
  After(5);
  Stored(2);
  Trouble(true);
  EXPECT_EQ(ledger_.ToJson(now_us_)["stored"].asInt(), 0);
  EXPECT_TRUE(ledger_.ToJson(now_us_)["running"].asBool());
}

}  // namespace
}  // namespace console
