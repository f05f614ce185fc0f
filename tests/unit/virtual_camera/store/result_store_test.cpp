#include "virtual_camera/store/result_store.h"

#include <csignal>
#include <memory>

#include <sys/wait.h>
#include <unistd.h>

#include "desk_camera.h"

namespace virtual_camera {
namespace {

class Store : public testing::Test {
 protected:
  Store() { Open({1000, 1000000}); }

  void Open(Retention retention) {
    Close();
    database = std::make_unique<Database>(Path());
    settings = std::make_unique<Settings>(*database);
    store = std::make_unique<ResultStore>(*database, *settings, retention);
  }

  void Close() {
    store.reset();
    settings.reset();
    database.reset();
  }

  std::string Path() const { return directory.path() + "/store.db"; }

  // A record that one can tell by its text, of `bytes` of pictures.
  ResultStore::Inserted Insert(int64_t bytes = 10) {
    const uint32_t id = store->NextId();
    return store->Insert(id, "record " + std::to_string(id), bytes, now_s);
  }

  std::vector<std::string> Undelivered(uint32_t min_id = 0, int64_t count = 100) {
    return store->SelectUndelivered(min_id, count);
  }

  TestDirectory directory;
  int64_t now_s = 1000;
  std::unique_ptr<Database> database;
  std::unique_ptr<Settings> settings;
  std::unique_ptr<ResultStore> store;
};

using Records = std::vector<std::string>;

TEST_F(Store, BeginsWithIdOne) { EXPECT_EQ(store->NextId(), 1U); }

TEST_F(Store, GivesTheNewest) {
  EXPECT_FALSE(store->Newest());
  Insert();
  Insert();
  EXPECT_EQ(store->Newest(), "record 2");
}

TEST_F(Store, FindsById) {
  Insert();
  EXPECT_EQ(store->Find(1), "record 1");
  EXPECT_FALSE(store->Find(2));
}

TEST_F(Store, SelectsUndeliveredOldestFirstFromAnIdOnUpToACount) {
  for (int i = 0; i < 5; ++i) {
    Insert();
  }
  store->MarkDelivered(3);
  EXPECT_EQ(Undelivered(2, 2), (Records{"record 2", "record 4"}));
  EXPECT_EQ(Undelivered(5), (Records{"record 5"}));
  EXPECT_EQ(Undelivered(0, 0), Records{});
  EXPECT_EQ(Undelivered(0, -1), Records{});
}

TEST_F(Store, MarksOnlyOnce) {
  Insert();
  EXPECT_TRUE(store->MarkDelivered(1));
  EXPECT_FALSE(store->MarkDelivered(1));
  EXPECT_FALSE(store->MarkDelivered(77));
  EXPECT_EQ(store->totals().undelivered, 0);
}

TEST_F(Store, ClearsWhatIsUndelivered) {
  Insert();
  Insert();
  store->MarkDelivered(1);
  EXPECT_EQ(store->ClearUndelivered(), 1);
  EXPECT_EQ(Undelivered(), Records{});
  EXPECT_EQ(store->totals().results, 2);
}

TEST_F(Store, KnowsTheAgeOfTheOldestUndelivered) {
  EXPECT_EQ(store->OldestUndeliveredAge(now_s), 0);
  Insert();
  now_s += 30;
  Insert();
  now_s += 5;
  EXPECT_EQ(store->OldestUndeliveredAge(now_s), 35);
  store->MarkDelivered(1);
  EXPECT_EQ(store->OldestUndeliveredAge(now_s), 5);
}

TEST_F(Store, RemovesTheOldestDeliveredBeforeAnyUndelivered) {
  Open({3, 1000000});
  Insert();
  Insert();
  Insert();
  store->MarkDelivered(2);
  const ResultStore::Inserted inserted = Insert();
  EXPECT_EQ(inserted.removed, std::vector<uint32_t>{2});
  EXPECT_EQ(inserted.undelivered_removed, 0);
}

TEST_F(Store, RemovesTheOldestUndeliveredAsTheLastResortAndCountsIt) {
  Open({2, 1000000});
  Insert();
  Insert();
  const ResultStore::Inserted inserted = Insert();
  EXPECT_EQ(inserted.removed, std::vector<uint32_t>{1});
  EXPECT_EQ(inserted.undelivered_removed, 1);
  EXPECT_EQ(store->totals().undelivered, 2);
  EXPECT_EQ(store->totals().undelivered_removed, 1);
}

TEST_F(Store, KeepsCountOfWhatItRemovedUndeliveredWhenItIsOpenedAgain) {
  Open({1, 1000000});
  Insert();
  Insert();
  Open({1, 1000000});
  EXPECT_EQ(store->totals().undelivered_removed, 1);
  Insert();
  EXPECT_EQ(store->totals().undelivered_removed, 2);
}

TEST_F(Store, KeepsWithinTheBytesOfPictures) {
  Open({1000, 100});
  Insert(60);
  store->MarkDelivered(1);
  Insert(30);
  EXPECT_EQ(Insert(40).removed, std::vector<uint32_t>{1});
  EXPECT_EQ(store->totals().picture_bytes, 70);
}

TEST_F(Store, KeepsTheNewestEvenIfItAloneIsTooMuch) {
  Open({1000, 100});
  Insert(60);
  EXPECT_EQ(Insert(500).removed, std::vector<uint32_t>{1});
  EXPECT_EQ(store->Newest(), "record 2");
}

TEST_F(Store, HasEverythingAgainWhenItIsOpenedAgain) {
  Insert();
  Insert();
  Insert();
  store->MarkDelivered(1);
  Open({1000, 1000000});
  EXPECT_EQ(Undelivered(), (Records{"record 2", "record 3"}));
  EXPECT_EQ(store->totals().results, 3);
  EXPECT_EQ(store->totals().undelivered, 2);
  EXPECT_EQ(store->totals().picture_bytes, 30);
}

TEST_F(Store, NeverGivesAnIdAgain) {
  Open({1, 1000000});
  Insert();
  Insert();
  database->Execute("DELETE FROM results");
  Open({1, 1000000});
  EXPECT_EQ(store->NextId(), 3U);
}

TEST_F(Store, RefusesWhenAllIdsAreGiven) {
  store->Insert(UINT32_MAX, "last", 0, now_s);
  EXPECT_THROW(store->NextId(), std::runtime_error);
}

TEST_F(Store, ChangesNothingWhenInsertingFails) {
  Insert();
  EXPECT_THROW(store->Insert(1, "the same id", 10, now_s), std::runtime_error);
  EXPECT_EQ(store->totals().results, 1);
  EXPECT_EQ(store->totals().picture_bytes, 10);
  Insert();
  EXPECT_EQ(store->Newest(), "record 2");
}

// The child tells each id only after Insert has returned, as the camera announces it.
[[noreturn]] void InsertUntilKilled(const std::string& path, int report) {
  Database database(path);
  Settings settings(database);
  ResultStore store(database, settings, {1000000, 1000000000});
  for (;;) {
    const uint32_t id = store.NextId();
    store.Insert(id, "record " + std::to_string(id), 1, 1);
    if (write(report, &id, sizeof(id)) != static_cast<ssize_t>(sizeof(id))) {
      _exit(1);
    }
  }
}

TEST_F(Store, HasWhatWasReportedBeforeAKill) {
  Close();
  uint32_t last = 0;
  for (const uint32_t at_least : {1U, 20U, 57U}) {
    int report[2];
    ASSERT_EQ(pipe(report), 0);
    const pid_t child = fork();
    if (child == 0) {
      InsertUntilKilled(Path(), report[1]);
    }
    close(report[1]);
    uint32_t id = 0;
    uint32_t reported = 0;
    while (reported < at_least && read(report[0], &id, sizeof(id)) > 0) {
      ++reported;
    }
    kill(child, SIGKILL);
    // What it could still report before it died.
    while (read(report[0], &id, sizeof(id)) > 0) {
      ++reported;
    }
    close(report[0]);
    waitpid(child, nullptr, 0);
    ASSERT_GE(reported, at_least);
    ASSERT_GE(id, last + reported) << "an id was given twice";
    last = id;
  }
  Open({1000000, 1000000000});
  for (uint32_t id = 1; id <= last; ++id) {
    EXPECT_EQ(store->Find(id), "record " + std::to_string(id));
  }
}

}  // namespace
}  // namespace virtual_camera
