#include "cloud_agent/address_text.h"

#include <gtest/gtest.h>

namespace agent {
namespace {

std::string Read(const std::string& text) {
  std::string host;
  int port = 1883;
  const std::string error = ParseHostAndPort(text, &host, &port);
  return error.empty() ? host + " " + std::to_string(port) : "error";
}

TEST(HostAndPort, AreRead) {
  EXPECT_EQ(Read("example.org"), "example.org 1883");
  EXPECT_EQ(Read("example.org:8883"), "example.org 8883");
  EXPECT_EQ(Read("[::1]"), "::1 1883");
  EXPECT_EQ(Read("[::1]:99"), "::1 99");
}

TEST(HostAndPort, AreRefusedWhenMalformed) {
  for (const char* text : {"", ":1883", "host:", "host:x", "host:65536", "::1", "[::1", "[::1]x",
                           "[]:5", "host:1:2"}) {
    EXPECT_EQ(Read(text), "error") << text;
  }
}

TEST(TopicLevels, HoldNoWildcards) {
  EXPECT_EQ(CheckTopicLevels("cameras"), "");
  EXPECT_EQ(CheckTopicLevels("eu/cameras"), "");
  for (const char* text : {"", "a+", "#", "$SYS", "/a", "a/"}) {
    EXPECT_NE(CheckTopicLevels(text), "") << text;
  }
}

}  // namespace
}  // namespace agent
