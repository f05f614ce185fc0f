#include "cache/kvdb_client.h"

#include <string>

#include <gtest/gtest.h>

#include "kv_fixture.h"
#include "platform/database_states.h"
#include "platform/kv_watch.h"
#include "scoped_environment.h"

namespace {

using KvdbClientTest = KvTest;

TEST_F(KvdbClientTest, ReadsWhatWasStoredBeforeAtOnce) {
  Put("dev_name", "gate 3");
  Put("net_rj45", "{\"ip\":\"10.0.0.1\"}");
  const auto client = NewClient();
  EXPECT_EQ(Get(*client, "dev_name"), "gate 3");
  EXPECT_EQ(Get(*client, "net_rj45"), "{\"ip\":\"10.0.0.1\"}");
}

TEST_F(KvdbClientTest, FollowsChanges) {
  Put("dev_name", "before");
  const auto client = NewClient();
  Put("dev_name", "after");
  EXPECT_TRUE(Becomes(*client, "dev_name", "after"));
  Put("net_rj45", "new");
  EXPECT_TRUE(Becomes(*client, "net_rj45", "new"));
}

TEST_F(KvdbClientTest, SaysThatAKeyIsNotThereAndLeavesTheTextAlone) {
  const auto client = NewClient();
  std::string value = "untouched";
  EXPECT_EQ(client->GetValue("dev_name", &value), 0);
  EXPECT_EQ(client->GetValue("", &value), 0);
  EXPECT_EQ(client->GetValue("no key.at *all", &value), 0);
  EXPECT_EQ(value, "untouched");
}

TEST_F(KvdbClientTest, ForgetsDeletedKeys) {
  Put("dev_name", "gate 3");
  Put("deleted_before", "x");
  Delete("deleted_before");
  const auto client = NewClient();
  EXPECT_EQ(Get(*client, "deleted_before"), "(none)");
  Delete("dev_name");
  EXPECT_TRUE(Becomes(*client, "dev_name", "(none)"));
}

TEST_F(KvdbClientTest, ReadsEmptyValuesAndAnyBytes) {
  const std::string bytes("\0\xFF\n", 3);
  Put("empty", "");
  Put("bytes", bytes);
  const auto client = NewClient();
  EXPECT_EQ(Get(*client, "empty"), "");
  EXPECT_EQ(Get(*client, "bytes"), bytes);
}

TEST_F(KvdbClientTest, ReadsManyKeys) {
  for (int number = 0; number < 300; ++number) {
    Put("key" + std::to_string(number), std::to_string(number));
  }
  const auto client = NewClient();
  for (int number = 0; number < 300; ++number) {
    EXPECT_EQ(Get(*client, "key" + std::to_string(number)), std::to_string(number));
  }
}

TEST_F(KvdbClientTest, AnswersWithoutTheServer) {
  Put("dev_name", "gate 3");
  const auto client = NewClient();
  server_.Freeze();
  EXPECT_EQ(Get(*client, "dev_name"), "gate 3");
  server_.Thaw();
}

TEST_F(KvdbClientTest, CreatesADatabaseThatIsMissing) {
  const auto client = NewClient("usr_data_kvdb");
  Open("usr_data_kvdb");
  Put("bus_cipher_data", "secret");
  EXPECT_TRUE(Becomes(*client, "bus_cipher_data", "secret"));
}

TEST_F(KvdbClientTest, ReadsItsOwnDatabaseOnly) {
  Put("dev_name", "gate 3");
  EXPECT_EQ(Get(*NewClient("usr_data_kvdb"), "dev_name"), "(none)");
}

TEST_F(KvdbClientTest, ReadsTheDatabaseOfItsRigWhereAPrefixIsSet) {
  const ScopedEnvironment prefix("TARVEX_SUBJECT_PREFIX", "rig.1");
  Open("rig_1_skvdb");
  Put("dev_name", "gate of rig 1");
  EXPECT_EQ(Get(*NewClient(), "dev_name"), "gate of rig 1");
}

TEST_F(KvdbClientTest, FindsItsWayBackToADatabaseThatWasReplaced) {
  Put("old", "x");
  const auto client = NewClient();
  DeleteDatabase("skvdb");
  Open("skvdb");
  Put("new", "y");
  EXPECT_TRUE(Becomes(*client, "new", "y"));
  EXPECT_TRUE(Becomes(*client, "old", "(none)"));
}

TEST_F(KvdbClientTest, EndsWhileTheServerIsFrozen) {
  const auto client = NewClient();
  server_.Freeze();
  // The client ends here; the test ends when it has.
}

TEST_F(KvdbClientTest, IsAmongTheDatabasesOfItsProcessWhileItLives) {
  EXPECT_THAT(tarvex::DatabaseStates(), testing::IsEmpty());
  const auto client = NewClient();
  auto other = NewClient("usr_data_kvdb");
  EXPECT_THAT(tarvex::DatabaseStates(), testing::ElementsAre(testing::Pair("skvdb", true),
                                                             testing::Pair("usr_data_kvdb", true)));
  other.reset();
  server_.Kill();
  EXPECT_TRUE(WaitUntil([] {
    return tarvex::DatabaseStates() == std::map<std::string, bool>{{"skvdb", false}};
  }));
}

TEST_F(KvdbClientTest, SharesConnectionAndCopiesWithTheOthersOfItsProcess) {
  const auto watch = tarvex::KvWatch::Of(Address());
  EXPECT_EQ(tarvex::KvWatch::Of(Address()), watch);
  const auto copy = watch->Follow("skvdb");
  EXPECT_EQ(watch->Follow("skvdb"), copy);
  EXPECT_NE(watch->Follow("usr_data_kvdb"), copy);
}

TEST_F(KvdbClientTest, ReadsADatabaseThatAnotherHasEndedWith) {
  Put("dev_name", "gate 3");
  const auto other = NewClient("usr_data_kvdb");  // keeps the connection up
  NewClient().reset();
  EXPECT_EQ(Get(*NewClient(), "dev_name"), "gate 3");
  Put("dev_name", "gate 4");
  EXPECT_TRUE(Becomes(*NewClient(), "dev_name", "gate 4"));
}

TEST_F(KvdbClientTest, IsNotMadeForANameThatNoDatabaseCanHave) {
  for (const char* name : {"", "a b", "a.b", "a/b", "*"}) {
    EXPECT_EQ(NewClient(name), nullptr) << name;
  }
}

TEST_F(KvdbClientTest, IsNotMadeForAMalformedAddress) {
  EXPECT_EQ(cache::KvdbClient::CreateKvdbNetClient("skvdb", tarvex::SocketAddress("", 0)), nullptr);
}

}  // namespace
