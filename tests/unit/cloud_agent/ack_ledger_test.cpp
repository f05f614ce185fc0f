#include "cloud_agent/ack_ledger.h"

#include <gtest/gtest.h>

namespace agent {
namespace {

using std::chrono::seconds;

constexpr AckLedger::TimePoint kNoon{seconds(1000)};

TEST(AckLedgerTest, GivesEachPublicationBackOnce) {
  AckLedger ledger(10);
  ledger.Add(7, 100, 50, kNoon);
  EXPECT_EQ(ledger.Take(8), std::nullopt);
  EXPECT_EQ(ledger.Take(7), 100U);
  EXPECT_EQ(ledger.Take(7), std::nullopt);
  EXPECT_TRUE(ledger.IsEmpty());
}

TEST(AckLedgerTest, HasRoomForSoManyPublicationsWhateverElseItHolds) {
  AckLedger ledger(2);
  ledger.Add(1, 0, 50, kNoon);
  ledger.Add(2, 0, 50, kNoon);
  ledger.Add(3, 100, 50, kNoon);
  EXPECT_TRUE(ledger.HasRoomForPublication());
  ledger.Add(4, 101, 50, kNoon);
  EXPECT_FALSE(ledger.HasRoomForPublication());
  ledger.Take(3);
  EXPECT_TRUE(ledger.HasRoomForPublication());
}

TEST(AckLedgerTest, HasRoomForSoManyBytes) {
  AckLedger ledger(10);
  const std::size_t half = AckLedger::kMostBytes / 2;
  EXPECT_FALSE(ledger.HasRoom(AckLedger::kMostBytes));
  ledger.Add(1, 0, half, kNoon);
  EXPECT_FALSE(ledger.HasRoom(half));
  EXPECT_TRUE(ledger.HasRoom(half - 2000));
  ledger.Clear();
  EXPECT_TRUE(ledger.HasRoom(half));
  EXPECT_TRUE(ledger.HasRoomForPublication());
}

TEST(AckLedgerTest, CountsSmallMessagesTooForWhatTheyCost) {
  AckLedger ledger(10);
  int count = 0;
  while (count < 1000000 && ledger.HasRoom(0)) {
    ledger.Add(++count, 0, 0, kNoon);
  }
  EXPECT_LT(count, 65536);
}

TEST(AckLedgerTest, TakesTheSecondOfTwoMessagesWithOneNumber) {
  AckLedger ledger(1);
  ledger.Add(7, 100, AckLedger::kMostBytes - 600, kNoon);
  ledger.Add(7, 101, 10, kNoon);
  EXPECT_TRUE(ledger.HasRoom(AckLedger::kMostBytes - 2000));
  EXPECT_EQ(ledger.Take(7), 101U);
  EXPECT_TRUE(ledger.HasRoomForPublication());
}

TEST(AckLedgerTest, KnowsADebtThatIsTooOld) {
  AckLedger ledger(10);
  ledger.Add(1, 100, 50, kNoon);
  EXPECT_FALSE(ledger.HasOneSentBefore(kNoon));
  EXPECT_TRUE(ledger.HasOneSentBefore(kNoon + seconds(1)));
}

}  // namespace
}  // namespace agent
