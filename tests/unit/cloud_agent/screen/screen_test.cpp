#include "cloud_agent/screen/screen.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sstream>

namespace agent {
namespace {

using std::chrono::seconds;
using ::testing::HasSubstr;
using ::testing::MatchesRegex;

TEST(ScreenTest, ShowsTimeDescriptionAndFate) {
  std::ostringstream out;
  Screen screen(&out);
  screen.ShowFate(screen.Describe("x", Json::Value(), 1), Fate::kAcknowledged);
  EXPECT_THAT(out.str(), MatchesRegex("[0-9]{4}-[0-9-]{5} [0-9:]{8} x tag 1 null: acknowledged\n"));
}

TEST(ScreenTest, ShowsHowFarARedeliveryIs) {
  std::ostringstream out;
  Screen screen(&out);
  const Screen::TimePoint start;
  EXPECT_TRUE(screen.OnPublished(16, start));
  screen.ShowUndelivered(2);
  screen.OnDelivered(16, start + seconds(1));
  EXPECT_THAT(out.str(), HasSubstr("re-delivery: 1 done, 1 left"));
  EXPECT_FALSE(screen.OnPublished(16, start + seconds(1)));
}

TEST(ScreenTest, BeginsANewRedeliveryAfterTheCountOrALossOfTheLink) {
  std::ostringstream out;
  Screen screen(&out);
  EXPECT_TRUE(screen.OnPublished(16, {}));
  screen.OnPublished(17, {});
  EXPECT_TRUE(screen.OnPublished(16, {}));
  screen.OnLinkDown();
  EXPECT_TRUE(screen.OnPublished(16, {}));
}

TEST(ScreenTest, DescribesNothingWhenNobodyWatches) {
  Screen screen(nullptr);
  EXPECT_EQ(screen.Describe("x", Json::Value(), 1), "");
  EXPECT_FALSE(screen.OnPublished(16, {}));
  screen.OnDelivered(16, {});
  screen.ShowEvent("x");
}

}  // namespace
}  // namespace agent
