#include "console/http/files.h"

#include <gtest/gtest.h>

#include <fstream>

#include "support/temp_directory.h"

namespace console {
namespace {

class Files : public testing::Test {
 protected:
  Files() {
    std::filesystem::create_directory(inside_);
    Write(inside_ / "car.jpg", "picture");
    Write(directory_.path() / "secret.jpg", "secret");
  }

  static void Write(const std::filesystem::path& path, const std::string& text) {
    std::ofstream(path) << text;
  }

  int StatusOf(const std::string& name) const { return FileResponse(inside_, name).status; }

  const TempDirectory directory_;
  const std::filesystem::path inside_ = directory_.path() / "inside";
};

TEST_F(Files, AreServedByName) {
  const HttpResponse response = FileResponse(inside_, "car.jpg");
  EXPECT_EQ(response.status, 200);
  EXPECT_EQ(response.type, "image/jpeg");
  EXPECT_EQ(response.body, "picture");
}

TEST_F(Files, OutsideTheDirectoryAreNone) {
  for (const char* name : {"../secret.jpg", "..%2fsecret.jpg", "..\\secret.jpg", "/etc/passwd",
                           "..", ".", "", "car.jpg/", "sub/car.jpg"}) {
    EXPECT_EQ(StatusOf(name), 404) << name;
  }
  EXPECT_EQ(StatusOf(std::string("car.jpg\0.html", 13)), 404);
}

TEST_F(Files, ThatAreHiddenLinksOrNoFilesAreNone) {
  Write(inside_ / ".lock", "");
  Write(inside_ / "core", "");
  std::filesystem::create_directory(inside_ / "folder.jpg");
  std::filesystem::create_symlink("../secret.jpg", inside_ / "link.jpg");
  for (const char* name : {".lock", "core", "folder.jpg", "link.jpg", "none.jpg"}) {
    EXPECT_EQ(StatusOf(name), 404) << name;
  }
}

}  // namespace
}  // namespace console
