// The programs that a test starts.
#include "support/child_process.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include "support/temp_directory.h"

namespace {

TEST(ChildProcess, InheritsNoOpenFile) {
  const TempDirectory directory;
  int ends[2];
  ASSERT_EQ(pipe(ends), 0);
  ChildProcess child({"sleep", "20"}, (directory.path() / "log").string());
  close(ends[1]);
  char byte = 0;
  EXPECT_EQ(read(ends[0], &byte, 1), 0);
  EXPECT_TRUE(child.IsRunning()) << "it kept the other end open";
  close(ends[0]);
}

}  // namespace
