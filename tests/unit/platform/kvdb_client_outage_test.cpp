// What a key-value client does while its server is away, and when it comes back.
#include <string>

#include <gtest/gtest.h>

#include "kv_fixture.h"

namespace {

using KvdbOutage = KvTest;

TEST_F(KvdbOutage, LeavesTheKnownValuesReadable) {
  Put("dev_name", "gate 3");
  const auto client = NewClient();
  server_.Kill();
  EXPECT_EQ(Get(*client, "dev_name"), "gate 3");
}

TEST_F(KvdbOutage, MayLastFromTheBeginning) {
  Put("dev_name", "gate 3");
  server_.Kill();
  const auto client = NewClient();
  ASSERT_NE(client, nullptr);
  EXPECT_EQ(Get(*client, "dev_name"), "(none)");
  server_.Start();
  EXPECT_TRUE(Becomes(*client, "dev_name", "gate 3"));
}

TEST_F(KvdbOutage, IsFollowedByTheChangesThatComeAfter) {
  Put("dev_name", "before");
  const auto client = NewClient();
  for (const std::string value : {"after the first", "after the second"}) {
    server_.Kill();
    server_.Start();
    Open("skvdb");
    Put("dev_name", value);
    EXPECT_TRUE(Becomes(*client, "dev_name", value));
  }
}

TEST_F(KvdbOutage, EmptiesTheCopyWhereTheServerHasLostItsData) {
  Put("dev_name", "gate 3");
  const auto client = NewClient();
  server_.Kill();
  server_.ForgetData();
  server_.Start();
  EXPECT_TRUE(Becomes(*client, "dev_name", "(none)"));
  Open("skvdb");
  Put("dev_name", "gate 4");
  EXPECT_TRUE(Becomes(*client, "dev_name", "gate 4"));
}

TEST_F(KvdbOutage, OfAFrozenServerEndsByItself) {
  Put("dev_name", "before");
  const auto client = NewClient();
  server_.Freeze();
  EXPECT_TRUE(WaitUntil([this] { return !device_->IsConnected(); }));
  server_.Thaw();
  Open("skvdb");
  Put("dev_name", "after");
  EXPECT_TRUE(Becomes(*client, "dev_name", "after"));
}

}  // namespace
