#include "platform/host_port.h"

#include <gtest/gtest.h>

namespace {

std::string Read(const std::string& text) {
  std::string host;
  int port = 1883;
  const std::string error = tarvex::ParseHostAndPort(text, &host, &port);
  return error.empty() ? host + " " + std::to_string(port) : "error";
}

TEST(HostAndPort, AreRead) {
  EXPECT_EQ(Read("example.org"), "example.org 1883");
  EXPECT_EQ(Read("example.org:8883"), "example.org 8883");
  EXPECT_EQ(Read("[::1]"), "::1 1883");
  EXPECT_EQ(Read("[::1]:99"), "::1 99");
}

TEST(HostAndPort, AreRefusedWhenMalformed) {
  for (const char* text : {"", ":1883", "host:", "host:x", "host:65536", "host:-1", "host: 1",
                           "host:99999999999", "::1", "[::1", "[::1]x", "[]:5", "host:1:2"}) {
    EXPECT_EQ(Read(text), "error") << text;
  }
}

TEST(HostAndPort, AreLeftAloneWhenMalformed) {
  std::string host = "before";
  int port = 7;
  tarvex::ParseHostAndPort("host:x", &host, &port);
  EXPECT_EQ(host, "before");
  EXPECT_EQ(port, 7);
}

}  // namespace
