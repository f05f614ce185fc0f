#include "virtual_camera/world/replay.h"

#include <fstream>

#include "desk_camera.h"
#include "virtual_camera/world/pace.h"

namespace virtual_camera {
namespace {

class CapturedFile : public testing::Test {
 protected:
  std::string Write(const std::string& bytes) {
    std::string path = directory.path() + "/capture.bin";
    std::ofstream(path, std::ios::binary) << bytes;
    return path;
  }

  TestDirectory directory;
};

TEST_F(CapturedFile, GivesItsRecordsInOrder) {
  ReplayFile file(Write(std::string(552, 'a') + std::string(552, 'b')));
  EXPECT_EQ(file.total(), 2);
  EXPECT_EQ(file.Next(), std::string(552, 'a'));
  EXPECT_EQ(file.Next(), std::string(552, 'b'));
  EXPECT_FALSE(file.Next());
}

TEST_F(CapturedFile, MayBeEmpty) {
  ReplayFile file(Write(""));
  EXPECT_FALSE(file.Next());
}

TEST_F(CapturedFile, IsRefusedWhenItEndsInTheMidstOfARecord) {
  const std::string path = Write(std::string(552 + 48, 'a'));
  try {
    ReplayFile file(path);
    FAIL() << "accepted";
  } catch (const std::runtime_error& error) {
    EXPECT_EQ(error.what(), path + ": the last record is incomplete: 48 of 552 bytes");
  }
}

TEST_F(CapturedFile, IsRefusedWhenItIsNotThere) {
  EXPECT_THROW(ReplayFile(directory.path() + "/nothing"), std::runtime_error);
  EXPECT_THROW(ReplayFile{directory.path()}, std::runtime_error);
}

int64_t TakeAll(Pace& pace, int64_t now_ms) {
  const int64_t due = pace.Due(now_ms);
  for (int64_t i = 0; i < due; ++i) {
    pace.Take();
  }
  return due;
}

TEST(PaceOfEvents, HoldsItsRateOnAverage) {
  Pace pace(7.5, 0);
  int64_t taken = 0;
  for (int64_t now_ms = 0; now_ms <= 60000; now_ms += 13) {
    taken += TakeAll(pace, now_ms);
  }
  EXPECT_NEAR(static_cast<double>(taken), 450, 1);
  EXPECT_EQ(pace.given_up(), 0);
}

TEST(PaceOfEvents, IsNeverDueAtRateZero) {
  Pace pace(0, 0);
  EXPECT_EQ(pace.Due(1000000), 0);
}

TEST(PaceOfEvents, SaysWhenTheNextIsDue) {
  Pace pace(4, 0);
  EXPECT_EQ(pace.NextInMs(), 250);
  pace.Due(100);
  EXPECT_EQ(pace.NextInMs(), 150);
}

TEST(PaceOfEvents, GivesUpWhatIsMoreThanASecondLate) {
  Pace pace(10, 0);
  EXPECT_EQ(TakeAll(pace, 60000), 10);
  EXPECT_EQ(pace.given_up(), 590);
}

TEST(PaceOfEvents, DoesNotGiveUpTheOnlyOneOfASlowRate) {
  Pace pace(0.01, 0);
  EXPECT_EQ(TakeAll(pace, 100000), 1);
  EXPECT_EQ(pace.given_up(), 0);
}

}  // namespace
}  // namespace virtual_camera
