#include "cloud_agent/topic_levels.h"

#include <gtest/gtest.h>

namespace agent {
namespace {

TEST(TopicLevels, HoldNoWildcards) {
  EXPECT_EQ(CheckTopicLevels("cameras"), "");
  EXPECT_EQ(CheckTopicLevels("eu/cameras"), "");
  for (const char* text : {"", "a+", "#", "$SYS", "/a", "a/"}) {
    EXPECT_NE(CheckTopicLevels(text), "") << text;
  }
}

}  // namespace
}  // namespace agent
