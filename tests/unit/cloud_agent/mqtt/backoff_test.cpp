#include "cloud_agent/mqtt/backoff.h"

#include <gtest/gtest.h>

#include <vector>

namespace agent {
namespace {

std::uint32_t Least(std::uint32_t) { return 0; }
std::uint32_t Most(std::uint32_t limit) { return limit - 1; }

std::vector<int> Delays(Backoff* backoff, int count) {
  std::vector<int> delays;
  for (int i = 0; i < count; ++i) {
    delays.push_back(backoff->NextDelay_ms());
  }
  return delays;
}

TEST(Backoff, DoublesUpToItsLimit) {
  Backoff backoff(100, 700, Least);
  EXPECT_EQ(Delays(&backoff, 5), (std::vector<int>{100, 200, 400, 700, 700}));
}

TEST(Backoff, DrawsFromAllOfEachStep) {
  std::vector<std::uint32_t> asked;
  Backoff backoff(100, 700, [&asked](std::uint32_t limit) {
    asked.push_back(limit);
    return limit - 1;
  });
  EXPECT_EQ(Delays(&backoff, 4), (std::vector<int>{1, 1, 1, 1}));
  EXPECT_EQ(asked, (std::vector<std::uint32_t>{100, 200, 400, 700}));
}

TEST(Backoff, StartsAgainAfterAReset) {
  Backoff backoff(100, 700, Least);
  Delays(&backoff, 3);
  backoff.Reset();
  EXPECT_EQ(backoff.NextDelay_ms(), 100);
}

TEST(Backoff, NeverReachesBeyondALimitNearTheLargestNumber) {
  Backoff backoff(2000000000, 2147483647, Least);
  EXPECT_EQ(Delays(&backoff, 3), (std::vector<int>{2000000000, 2147483647, 2147483647}));
}

TEST(Backoff, WaitsAtLeastAMillisecond) {
  Backoff backoff(0, 0, Most);
  EXPECT_EQ(backoff.NextDelay_ms(), 1);
}

}  // namespace
}  // namespace agent
