#include "cloud_agent/picture_store.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <sstream>

#include "cloud_agent/picture_index.h"

namespace agent {
namespace {

namespace fs = std::filesystem;
using ::testing::ElementsAre;
using ::testing::HasSubstr;

class Pictures : public ::testing::Test {
 protected:
  Pictures() {
    std::string pattern = ::testing::TempDir() + "pictures_XXXXXX";
    root_ = mkdtemp(pattern.data());
    options_.directory = root_ + "/out";
    options_.url = "http://camera/p";
    options_.keep = 3;
    options_.max_bytes = 1000;
  }
  ~Pictures() override { fs::remove_all(root_); }

  void Open() {
    store_ = std::make_unique<PictureStore>(options_);
    std::string error;
    ASSERT_TRUE(store_->Open(&error)) << error;
  }

  std::string Store(const std::string& source, const std::string& name) {
    if (store_ == nullptr) {
      Open();
    }
    return store_->Store(source, name);
  }

  std::string Source(const std::string& content, const std::string& name = "source.jpg") {
    std::ofstream(root_ + "/" + name) << content;
    return root_ + "/" + name;
  }

  std::string Content(const std::string& name) {
    std::ifstream file(options_.directory + "/" + name);
    std::ostringstream content;
    content << file.rdbuf();
    return content.str();
  }

  std::vector<std::string> Files() {
    std::vector<std::string> names;
    for (const auto& entry : fs::directory_iterator(options_.directory)) {
      names.push_back(entry.path().filename().string());
    }
    std::sort(names.begin(), names.end());
    return names;
  }

  std::string root_;
  PictureStore::Options options_;
  std::unique_ptr<PictureStore> store_;
};

TEST_F(Pictures, AreCopiedUnderTheNameGivenAndFoundByTheirUrl) {
  EXPECT_EQ(Store(Source("light"), "a_full.jpg"), "http://camera/p/a_full.jpg");
  EXPECT_EQ(Content("a_full.jpg"), "light");
  EXPECT_THAT(Files(), ElementsAre("a_full.jpg"));
}

TEST_F(Pictures, AreFoundAsFilesWhereNoUrlIsGiven) {
  options_.url.clear();
  options_.directory = root_ + "/with space";
  EXPECT_EQ(Store(Source("x"), "a.jpg"), "file://" + root_ + "/with%20space/a.jpg");
}

TEST_F(Pictures, OfUnusualNamesHaveEncodedUrls) {
  EXPECT_EQ(Store(Source("x"), "a b?\xC3\xBC.jpg"), "http://camera/p/a%20b%3F%C3%BC.jpg");
}

TEST_F(Pictures, OfTheSameNameAreReplaced) {
  Store(Source("old"), "a.jpg");
  Store(Source("new"), "a.jpg");
  EXPECT_EQ(Content("a.jpg"), "new");
}

TEST_F(Pictures, GivenByNumberAreTakenFromTheirDirectory) {
  options_.id_directory = root_;
  Source("numbered", "42.jpg");
  EXPECT_EQ(Store("42", "a.jpg"), "http://camera/p/a.jpg");
  EXPECT_EQ(Content("a.jpg"), "numbered");
}

TEST_F(Pictures, GivenByNumberAreNotFoundWithoutThatDirectory) {
  EXPECT_EQ(Store("42", "a.jpg"), "");
}

TEST_F(Pictures, ThatAreNotThereHaveNoUrl) {
  EXPECT_EQ(Store(root_ + "/none.jpg", "a.jpg"), "");
  EXPECT_EQ(Store("", "a.jpg"), "");
  EXPECT_THAT(Files(), ElementsAre());
}

TEST_F(Pictures, AreTakenFromRegularFilesOnly) {
  ASSERT_EQ(mkfifo((root_ + "/pipe").c_str(), 0600), 0);
  EXPECT_EQ(Store(root_, "a.jpg"), "");
  EXPECT_EQ(Store(root_ + "/pipe", "a.jpg"), "");
  EXPECT_EQ(Store("/dev/zero", "a.jpg"), "");
}

TEST_F(Pictures, ThatAreTooLargeLeaveNothingBehind) {
  EXPECT_EQ(Store(Source(std::string(1001, 'x')), "a.jpg"), "");
  EXPECT_THAT(Files(), ElementsAre());
  EXPECT_NE(Store(Source(std::string(1000, 'x')), "a.jpg"), "");
}

TEST_F(Pictures, AreStoredUnderPlainNamesOnly) {
  const std::string source = Source("x");
  EXPECT_EQ(Store(source, "../a.jpg"), "");
  EXPECT_EQ(Store(source, "b/a.jpg"), "");
  EXPECT_EQ(Store(source, ".a.jpg"), "");
  EXPECT_EQ(Store(source, ""), "");
  EXPECT_EQ(Store(source, std::string("a\0.jpg", 6)), "");
  EXPECT_EQ(Store(source, std::string(300, 'a')), "");
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

TEST(PictureIndexTest, NamesTheOldestWhenThereIsNoRoom) {
  PictureIndex index(2);
  EXPECT_EQ(index.Add("a"), std::nullopt);
  EXPECT_EQ(index.Add("b"), std::nullopt);
  EXPECT_EQ(index.Add("a"), std::nullopt);
  EXPECT_EQ(index.Add("c"), "a");
  EXPECT_EQ(index.Add("a"), "b");
}

}  // namespace
}  // namespace agent
