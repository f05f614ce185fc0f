#include "virtual_camera/store/database.h"

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

#include <gtest/gtest.h>

#include "support/temp_directory.h"

namespace virtual_camera {
namespace {

namespace fs = std::filesystem;

std::string BytesOf(const fs::path& file) {
  std::ifstream stream(file, std::ios::binary);
  return {std::istreambuf_iterator<char>(stream), {}};
}

int64_t Rows(Database& database) {
  Statement count(database, "SELECT count(*) FROM rows");
  count.Step();
  return count.Int(0);
}

// A process that is killed as it commits leaves the commit in the log, and not in the index of the
// log, which lives on while another process has the file open. A loss of power takes the index.
TEST(DatabaseAfterAKill, DoesNotBringBackLaterWhatItHasNotGot) {
  const TempDirectory directory;
  const fs::path file = directory.path() / "camera.db";
  const fs::path index = directory.path() / "camera.db-shm";
  Database other(file.string());
  other.Execute("CREATE TABLE rows(number)");
  {
    Database killed(file.string());
    killed.Execute("INSERT INTO rows VALUES(1)");
    const std::string before = BytesOf(index);
    killed.Execute("INSERT INTO rows VALUES(2)");
    std::fstream(index, std::ios::binary | std::ios::in | std::ios::out) << before;
  }
  Database next(file.string());
  ASSERT_EQ(Rows(next), 1);

  const TempDirectory cut_off;
  for (const char* name : {"camera.db", "camera.db-wal"}) {
    fs::copy_file(directory.path() / name, cut_off.path() / name);
  }
  Database after_the_cut((cut_off.path() / "camera.db").string());
  EXPECT_EQ(Rows(after_the_cut), 1);
}

}  // namespace
}  // namespace virtual_camera
