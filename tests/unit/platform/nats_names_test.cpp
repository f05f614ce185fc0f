#include "platform/nats_names.h"

#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "platform/nats_link.h"
#include "scoped_environment.h"

namespace {

using tarvex::SocketAddress;
using testing::HasSubstr;

std::string Effective(const std::string& host, int port) {
  return tarvex::EffectiveServersText(SocketAddress(host, port));
}

TEST(ServerAddress, IsTheGivenOneWithoutTheVariables) {
  EXPECT_EQ(Effective("127.0.0.1", 6101), "127.0.0.1:6101");
  EXPECT_EQ(Effective("127.0.0.1", 6102), "127.0.0.1:6102");
}

TEST(ServerAddress, OfTheBusIsRedirectedByItsVariable) {
  const ScopedEnvironment bus("TARVEX_BUS_ADDRESS", "bus.example:4222");
  EXPECT_EQ(Effective("127.0.0.1", 6101), "bus.example:4222");
  EXPECT_EQ(Effective("127.0.0.1", 6102), "127.0.0.1:6102");
  EXPECT_EQ(Effective("10.0.0.1", 6101), "10.0.0.1:6101");
}

TEST(ServerAddress, OfTheDatabasesIsRedirectedByItsVariable) {
  const ScopedEnvironment kv("TARVEX_KV_ADDRESS", "[::1]:65535");
  EXPECT_EQ(Effective("127.0.0.1", 6102), "[::1]:65535");
  EXPECT_EQ(Effective("127.0.0.1", 6101), "127.0.0.1:6101");
}

TEST(ServerAddress, CanBeThoseOfACluster) {
  const ScopedEnvironment bus("TARVEX_BUS_ADDRESS", "one:1,[::2]:2,three:3");
  EXPECT_EQ(Effective("127.0.0.1", 6101), "one:1,[::2]:2,three:3");
}

TEST(ServerAddress, IsNoneWithOneErrorWhereTheVariableIsMalformed) {
  for (const char* text :
       {"nowhere", ":4222", "host:", "host:x", "host:1x", "host:0", "host:65536", "host:-1",
        "::1:5", "a b:1", "user@host:1", ",", "a:1,", "a:1,,b:2", "a:1,b"}) {
    const ScopedEnvironment bus("TARVEX_BUS_ADDRESS", text);
    testing::internal::CaptureStderr();
    EXPECT_EQ(Effective("127.0.0.1", 6101), "") << text;
    const std::string log = testing::internal::GetCapturedStderr();
    EXPECT_THAT(log, HasSubstr(std::string("TARVEX_BUS_ADDRESS is not \"host:port\": ") + text));
    EXPECT_EQ(log.find('\n'), log.size() - 1);
  }
}

TEST(Subject, IsTheNameOrFollowsThePrefix) {
  EXPECT_EQ(tarvex::BusSubject("SS_BUS_REQUEST"), "SS_BUS_REQUEST");
  const ScopedEnvironment prefix("TARVEX_SUBJECT_PREFIX", "rig.7");
  EXPECT_EQ(tarvex::BusSubject("SS_BUS_REQUEST"), "rig.7.SS_BUS_REQUEST");
}

TEST(Bucket, IsTheNameOrFollowsThePrefixAsFarAsItMay) {
  EXPECT_EQ(tarvex::KvBucket("skvdb"), "skvdb");
  const ScopedEnvironment prefix("TARVEX_SUBJECT_PREFIX", "rig.7/a-B");
  EXPECT_EQ(tarvex::KvBucket("skvdb"), "rig_7_a-B_skvdb");
}

TEST(Prefix, IsUsableWhereItCanBeginASubject) {
  EXPECT_TRUE(tarvex::IsUsablePrefix());
  for (const char* text : {"rig", "rig.7", "a-b_c"}) {
    const ScopedEnvironment prefix("TARVEX_SUBJECT_PREFIX", text);
    EXPECT_TRUE(tarvex::IsUsablePrefix()) << text;
  }
}

TEST(Prefix, IsRefusedWithAnErrorOtherwise) {
  for (const char* text : {"a b", "rig.", ".rig", "a..b", "*", "rig.>", "a\tb"}) {
    const ScopedEnvironment prefix("TARVEX_SUBJECT_PREFIX", text);
    testing::internal::CaptureStderr();
    EXPECT_FALSE(tarvex::IsUsablePrefix()) << text;
    EXPECT_THAT(testing::internal::GetCapturedStderr(), HasSubstr("TARVEX_SUBJECT_PREFIX"));
  }
}

}  // namespace
