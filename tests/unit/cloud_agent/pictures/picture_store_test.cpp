#include "cloud_agent/pictures/picture_store.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/stat.h>

#include <filesystem>
#include <fstream>
#include <sstream>

#include "support/temp_directory.h"

namespace agent {
namespace {

namespace fs = std::filesystem;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::MatchesRegex;
using ::testing::StartsWith;

// Of the random part of a name, its '_' included.
constexpr std::size_t kDigits = 9;

class Pictures : public ::testing::Test {
 protected:
  Pictures() {
    options_.directory = Root() + "/out";
    options_.url = "http://camera/p";
    options_.keep = 3;
    options_.max_bytes = 1000;
  }

  std::string Root() const { return root_.path().string(); }

  void Open() {
    store_ = std::make_unique<PictureStore>(options_);
    std::string error;
    ASSERT_TRUE(store_->Open(&error)) << error;
  }

  PictureStore::Picture Store(const std::string& source, const std::string& name) {
    if (store_ == nullptr) {
      Open();
    }
    return store_->Store(source, name);
  }

  std::string Source(const std::string& content, const std::string& name = "source.jpg") {
    std::ofstream(Root() + "/" + name) << content;
    return Root() + "/" + name;
  }

  std::string Content(const std::string& name) {
    std::ifstream file(options_.directory + "/" + name);
    std::ostringstream content;
    content << file.rdbuf();
    return content.str();
  }

  /// The files in the directory, without the random digits of their names.
  std::vector<std::string> Files() {
    std::vector<std::string> names;
    for (const auto& entry : fs::directory_iterator(options_.directory)) {
      std::string stem = entry.path().stem().string();
      if (stem.size() > kDigits && stem[stem.size() - kDigits] == '_') {
        stem.resize(stem.size() - kDigits);
      }
      if (stem != ".lock") {
        names.push_back(stem + entry.path().extension().string());
      }
    }
    std::sort(names.begin(), names.end());
    return names;
  }

  TempDirectory root_;
  PictureStore::Options options_;
  std::unique_ptr<PictureStore> store_;
};

TEST_F(Pictures, AreCopiedUnderANameOfTheirOwnAndFoundByTheirUrl) {
  const PictureStore::Picture picture = Store(Source("light"), "a_full.jpg");
  EXPECT_THAT(picture.name, MatchesRegex("a_full_[0-9a-f]{8}[.]jpg"));
  EXPECT_EQ(picture.url, "http://camera/p/" + picture.name);
  EXPECT_EQ(Content(picture.name), "light");
  EXPECT_THAT(Files(), ElementsAre("a_full.jpg"));
}

TEST_F(Pictures, AreFoundAsFilesWhereNoUrlIsGiven) {
  options_.url.clear();
  options_.directory = Root() + "/with space";
  EXPECT_THAT(Store(Source("x"), "a.jpg").url, StartsWith("file://" + Root() + "/with%20space/a_"));
}

TEST_F(Pictures, OfUnusualNamesHaveEncodedUrls) {
  EXPECT_THAT(Store(Source("x"), "a b?\xC3\xBC.jpg").url,
              StartsWith("http://camera/p/a%20b%3F%C3%BC_"));
}

TEST_F(Pictures, OfTheSameNameAreKeptSideBySide) {
  const std::string old_name = Store(Source("old"), "a.jpg").name;
  const std::string new_name = Store(Source("new"), "a.jpg").name;
  EXPECT_EQ(Content(old_name), "old");
  EXPECT_EQ(Content(new_name), "new");
}

TEST_F(Pictures, GivenByNumberAreTakenFromTheirDirectory) {
  options_.id_directory = Root();
  Source("numbered", "42.jpg");
  EXPECT_EQ(Content(Store("42", "a.jpg").name), "numbered");
}

TEST_F(Pictures, GivenByNumberAreNotFoundWithoutThatDirectory) {
  EXPECT_EQ(Store("42", "a.jpg").url, "");
}

TEST_F(Pictures, ThatAreNotThereHaveNoUrlAndAreCounted) {
  EXPECT_EQ(Store(Root() + "/none.jpg", "a.jpg").url, "");
  EXPECT_EQ(Store("", "a.jpg").url, "");
  EXPECT_THAT(Files(), ElementsAre());
  EXPECT_EQ(store_->failed(), 2U);
  Store(Source("x"), "a.jpg");
  EXPECT_EQ(store_->failed(), 2U);
}

TEST_F(Pictures, AreTakenFromRegularFilesOnly) {
  ASSERT_EQ(mkfifo((Root() + "/pipe").c_str(), 0600), 0);
  EXPECT_EQ(Store(Root(), "a.jpg").url, "");
  EXPECT_EQ(Store(Root() + "/pipe", "a.jpg").url, "");
  EXPECT_EQ(Store("/dev/zero", "a.jpg").url, "");
}

TEST_F(Pictures, ThatAreTooLargeLeaveNothingBehind) {
  EXPECT_EQ(Store(Source(std::string(1001, 'x')), "a.jpg").url, "");
  EXPECT_THAT(Files(), ElementsAre());
  EXPECT_NE(Store(Source(std::string(1000, 'x')), "a.jpg").url, "");
}

TEST_F(Pictures, AreStoredUnderPlainNamesOnly) {
  const std::string source = Source("x");
  EXPECT_EQ(Store(source, "../a.jpg").url, "");
  EXPECT_EQ(Store(source, "b/a.jpg").url, "");
  EXPECT_EQ(Store(source, ".a.jpg").url, "");
  EXPECT_EQ(Store(source, "").url, "");
  EXPECT_EQ(Store(source, std::string("a\0.jpg", 6)).url, "");
  EXPECT_EQ(Store(source, std::string(300, 'a')).url, "");
  EXPECT_THAT(Files(), ElementsAre());
}

TEST_F(Pictures, MakeRoomForTheNewest) {
  for (const char* name : {"1.jpg", "2.jpg", "3.jpg", "4.jpg", "5.jpg"}) {
    Store(Source("x"), name);
  }
  EXPECT_THAT(Files(), ElementsAre("3.jpg", "4.jpg", "5.jpg"));
}

TEST_F(Pictures, OfAnEarlierRunMakeRoomFirst) {
  fs::create_directories(options_.directory);
  const auto now = fs::file_time_type::clock::now();
  for (int age = 1; age <= 3; ++age) {
    const std::string path = options_.directory + "/old" + std::to_string(age) + ".jpg";
    std::ofstream(path) << "x";
    fs::last_write_time(path, now - std::chrono::hours(age));
  }
  std::ofstream(options_.directory + "/notes.txt") << "not a picture";
  Store(Source("x"), "new.jpg");
  EXPECT_THAT(Files(), ElementsAre("new.jpg", "notes.txt", "old1.jpg", "old2.jpg"));
}

TEST_F(Pictures, LeftUnfinishedByAnEarlierRunAreRemoved) {
  fs::create_directories(options_.directory);
  std::ofstream(options_.directory + "/.a.jpg.part") << "x";
  Open();
  EXPECT_THAT(Files(), ElementsAre());
}

TEST_F(Pictures, CannotBeKeptInAFile) {
  options_.directory = Source("x");
  std::string error;
  EXPECT_FALSE(PictureStore(options_).Open(&error));
  EXPECT_THAT(error, HasSubstr("the picture directory cannot be used"));
}

TEST_F(Pictures, MakeRoomWhereTheyAreTooManyBytes) {
  options_.keep_bytes = 25;
  for (const char* name : {"1.jpg", "2.jpg", "3.jpg"}) {
    Store(Source(std::string(10, 'x')), name);
  }
  EXPECT_THAT(Files(), ElementsAre("2.jpg", "3.jpg"));
}

TEST_F(Pictures, ThatNobodyWasToldOfAreRemoved) {
  const std::string first = Store(Source("x"), "1.jpg").name;
  const std::string second = Store(Source("x"), "2.jpg").name;
  store_->Remove(second);
  store_->Remove("no such");
  EXPECT_THAT(Files(), ElementsAre("1.jpg"));
  store_->Remove(first);
  EXPECT_THAT(Files(), ElementsAre());
}

TEST_F(Pictures, WithoutContentOfAnEarlierRunAreRemoved) {
  fs::create_directories(options_.directory);
  std::ofstream(options_.directory + "/a.jpg").close();
  Open();
  EXPECT_THAT(Files(), ElementsAre());
}

TEST_F(Pictures, AreKeptByOneStoreAtATime) {
  Open();
  std::string error;
  EXPECT_FALSE(PictureStore(options_).Open(&error));
  EXPECT_THAT(error, HasSubstr("another agent uses the picture directory " + options_.directory));
  store_.reset();
  EXPECT_TRUE(PictureStore(options_).Open(&error));
}

/// A file system of one megabyte.
class PicturesOnAFullDisk : public Pictures {
 protected:
  void SetUp() override {
    options_.directory = Root() + "/disk";
    options_.max_bytes = std::size_t{1} << 20;
    options_.keep = 1000;
    fs::create_directories(options_.directory);
    if (mount("tmpfs", options_.directory.c_str(), "tmpfs", 0, "size=1m") != 0) {
      GTEST_SKIP() << "a file system cannot be mounted here";
    }
  }
  void TearDown() override {
    store_.reset();
    umount2(options_.directory.c_str(), MNT_DETACH);
  }
};

TEST_F(PicturesOnAFullDisk, MakeRoomForTheNewest) {
  const std::string source = Source(std::string(200000, 'x'));
  for (int i = 0; i < 20; ++i) {
    const PictureStore::Picture picture = Store(source, std::to_string(100 + i) + ".jpg");
    ASSERT_NE(picture.url, "");
    EXPECT_EQ(Content(picture.name).size(), 200000U);
  }
  EXPECT_EQ(store_->failed(), 0U);
  EXPECT_EQ(Files().back(), "119.jpg");
}

TEST_F(PicturesOnAFullDisk, LeaveNoPartOfThemselvesWhereThereIsNoRoomToMake) {
  Open();
  std::ofstream(options_.directory + "/other") << std::string(std::size_t{1} << 20, 'x');
  EXPECT_EQ(Store(Source(std::string(200000, 'x')), "a.jpg").url, "");
  EXPECT_THAT(Files(), ElementsAre("other"));
  fs::remove(options_.directory + "/other");
  EXPECT_NE(Store(Source(std::string(200000, 'x')), "a.jpg").url, "");
}

}  // namespace
}  // namespace agent
