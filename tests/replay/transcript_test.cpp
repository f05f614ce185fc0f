// Transcripts as text, and how two of them differ.
#include "transcript.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sstream>

namespace replay {
namespace {

using testing::ElementsAre;

Transcript Of(const std::string& text) {
  std::istringstream stream(text);
  return ReadTranscript(stream);
}

std::string DifferenceOf(const std::string& before, const std::string& after) {
  return Compare(Of(before), Of(after)).text;
}

TEST(Transcript, IsTheSameAfterItWasReadAgain) {
  const std::string text = "capture c\n== 0 start\n  a\n    b\n== 1 end\n";
  EXPECT_EQ(Text(Of(text)), text);
}

TEST(Transcript, DoesNotDifferFromItself) {
  EXPECT_EQ(Compare(Of("capture c\n== 1 x\n  a\n"), Of("capture c\n== 1 x\n  a\n")).steps, 0U);
}

TEST(Transcript, DiffersWithTheCaptureTheEventAndTheLinesAround) {
  EXPECT_EQ(DifferenceOf("capture c\n== 1 x\n  a\n  b\n== 2 y\n  same\n",
                         "capture c\n== 1 x\n  a\n  B\n== 2 y\n  same\n"),
            "capture c\n@@ 1 x @@\n   a\n-  b\n+  B\n");
}

TEST(Transcript, LeavesOutWhatIsFarFromADifference) {
  EXPECT_EQ(DifferenceOf("== 1 x\n  a\n  1\n  2\n  3\n  4\n  5\n  6\n  7\n  z\n",
                         "== 1 x\n  A\n  1\n  2\n  3\n  4\n  5\n  6\n  7\n  z\n  new\n"),
            "@@ 1 x @@\n-  a\n+  A\n   1\n   2\n   3\n   ...\n   6\n   7\n   z\n+  new\n");
}

TEST(Transcript, ShowsWhatIsNewBetweenTwoLinesThatStay) {
  EXPECT_EQ(DifferenceOf("== 1 x\n  a\n  b\n", "== 1 x\n  a\n  new\n  b\n"),
            "@@ 1 x @@\n   a\n+  new\n   b\n");
}

TEST(Transcript, ShowsTheEventsThatOneDidNotReach) {
  EXPECT_EQ(DifferenceOf("== 1 x\n  a\n== 2 y\n  b\n", "== 1 x\n  a\n"), "@@ 2 y @@\n-  b\n");
}

TEST(Transcript, OfAnotherCaptureDiffersInItsEvents) {
  EXPECT_EQ(DifferenceOf("== 1 x\n", "== 1 y\n"), "-== 1 x\n+== 1 y\n");
}

TEST(Transcript, CountsTheStepsThatDiffer) {
  EXPECT_EQ(
      Compare(Of("== 1 x\n  a\n== 2 y\n  a\n== 3 z\n"), Of("== 1 x\n  b\n== 2 y\n  b\n== 3 z\n"))
          .steps,
      2U);
}

TEST(Transcript, OfVeryManyOtherLinesShowsAllOfThem) {
  std::string before = "== 1 x\n";
  std::string after = before;
  for (int i = 0; i < 3000; ++i) {
    before += "  a" + std::to_string(i) + "\n";
    after += "  b" + std::to_string(i) + "\n";
  }
  const std::string text = DifferenceOf(before, after);
  EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), 6001);
}

TEST(Transcript, ShowsTextLineByLineWithItsEnds) {
  EXPECT_THAT(Shown("a\tb\n\\c"), ElementsAre("a\\x09b\\n", "\\\\c"));
}

TEST(Transcript, ShowsLettersOfAnyAlphabetAsText) {
  EXPECT_THAT(Shown("\xc3\xa9"), ElementsAre("\\xc3\\xa9"));
  EXPECT_THAT(Shown("\xff"), ElementsAre("0000  ff"));
}

TEST(Transcript, ShowsBytesAsADump) {
  EXPECT_THAT(Shown(std::string(17, '\0')),
              ElementsAre("0000  00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00", "0010  00"));
}

}  // namespace
}  // namespace replay
