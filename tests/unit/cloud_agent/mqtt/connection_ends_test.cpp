#include "cloud_agent/mqtt/connection_ends.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace agent {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;
using ::testing::HasSubstr;
using ::testing::StartsWith;

ConnectionEnd EndAfter(milliseconds stood, const std::string& denied_topic = "") {
  ConnectionEnd end;
  end.reason = "lost";
  end.was_ready = true;
  end.stood = stood;
  end.denied_topic = denied_topic;
  return end;
}

ConnectionEnd FailedAttempt() {
  ConnectionEnd end;
  end.reason = "refused";
  return end;
}

TEST(ConnectionEnds, OfConnectionsThatStoodLongEnoughAreGood) {
  ConnectionEnds ends("CAM1", seconds(30));
  ends.Add(EndAfter(seconds(59)));
  EXPECT_FALSE(ends.WasGood());
  ends.Add(EndAfter(seconds(60)));
  EXPECT_TRUE(ends.WasGood());
  ends.Add(FailedAttempt());
  EXPECT_FALSE(ends.WasGood());
}

TEST(ConnectionEnds, OfShortDelaysAreGoodAfterFiveSeconds) {
  ConnectionEnds ends("CAM1", milliseconds(20));
  ends.Add(EndAfter(milliseconds(4999)));
  EXPECT_FALSE(ends.WasGood());
  ends.Add(EndAfter(milliseconds(5000)));
  EXPECT_TRUE(ends.WasGood());
}

TEST(ConnectionEnds, ThatComeSoonThreeTimesMakeAnotherClientLikely) {
  ConnectionEnds ends("CAM1", milliseconds(20));
  EXPECT_EQ(ends.Add(EndAfter(seconds(1))), "lost");
  EXPECT_EQ(ends.Add(EndAfter(seconds(1))), "lost");
  EXPECT_EQ(ends.Add(FailedAttempt()), "refused");
  EXPECT_THAT(ends.Add(EndAfter(seconds(1))),
              HasSubstr("another client may use the client id CAM1"));
  ends.Add(EndAfter(seconds(10)));
  EXPECT_EQ(ends.Add(EndAfter(seconds(1))), "lost");
}

TEST(ConnectionEnds, OnTheSamePublicationMakeItsDenialCertain) {
  ConnectionEnds ends("CAM1", milliseconds(20));
  EXPECT_THAT(ends.Add(EndAfter(seconds(1), "t")), StartsWith("lost after t was published"));
  EXPECT_THAT(ends.Add(EndAfter(seconds(1), "u")), StartsWith("lost after u was published"));
  EXPECT_THAT(ends.Add(EndAfter(seconds(1), "u")),
              StartsWith("the broker refuses to publish u: it ended 2 connections in a row"));
  EXPECT_THAT(ends.Add(EndAfter(seconds(1), "u")), HasSubstr("it ended 3 connections in a row"));
}

}  // namespace
}  // namespace agent
