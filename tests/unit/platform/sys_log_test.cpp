#include "sys_log.h"

#include <cerrno>
#include <chrono>
#include <ctime>
#include <map>
#include <sstream>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "platform/latest_error.h"
#include "platform/log_entry.h"
#include "scoped_environment.h"
#include "support/child_process.h"
#include "support/temp_directory.h"

namespace {

using testing::EndsWith;
using testing::HasSubstr;
using testing::MatchesRegex;

using Environment = std::map<std::string, std::string>;

/// What a program that logs (PRIORITY TEXT THREADS ENTRIES) has written to standard output and
/// error.
std::string LoggedBy(const std::vector<std::string>& arguments, const Environment& environment) {
  const TempDirectory directory;
  std::vector<std::string> command = {LOG_PROBE};
  command.insert(command.end(), arguments.begin(), arguments.end());
  ChildProcess probe(command, (directory.path() / "output").string(), environment);
  EXPECT_TRUE(probe.WaitForExit());
  EXPECT_EQ(probe.exit_code(), 0);
  return probe.Output();
}

/// What one call has written in this process.
std::string Logged(const std::string& text) {
  testing::internal::CaptureStderr();
  __sys_log(3, "source", "Function", 7, "%s", text.c_str());
  return testing::internal::GetCapturedStderr();
}

TEST(LogEntryText, NamesTimePrioritySourceFunctionAndLine) {
  const ScopedEnvironment zone("TZ", "UTC");
  tzset();
  const std::chrono::system_clock::time_point time{std::chrono::milliseconds(1769817599045)};
  EXPECT_EQ(tarvex::LogEntry(time, 3, "mqtt_adapter", "Initialize", 12, "text"),
            "2026-01-30 23:59:59.045 error mqtt_adapter Initialize:12 text\n");
}

TEST(LogEntryText, FollowsTheClock) {
  const ScopedEnvironment zone("TZ", "UTC");
  tzset();
  const auto time_at = [](int milliseconds) {
    const std::chrono::system_clock::time_point time{std::chrono::milliseconds(milliseconds)};
    return tarvex::LogEntry(time, 3, "s", "f", 1, "").substr(11, 12);
  };
  EXPECT_EQ(time_at(59000), "00:00:59.000");
  EXPECT_EQ(time_at(59999), "00:00:59.999");
  EXPECT_EQ(time_at(60000), "00:01:00.000");
}

TEST(LogEntryText, NamesEveryPriority) {
  const auto name = [](int priority) {
    return tarvex::LogEntry({}, priority, "s", "f", 1, "").substr(24);
  };
  EXPECT_EQ(name(4), "warning s f:1 \n");
  EXPECT_EQ(name(6), "info s f:1 \n");
  EXPECT_EQ(name(7), "debug s f:1 \n");
  EXPECT_EQ(name(99), "unknown s f:1 \n");
}

TEST(LogEntryText, SurvivesMissingNames) {
  EXPECT_THAT(tarvex::LogEntry({}, 3, nullptr, nullptr, 1, "text"), EndsWith(" - -:1 text\n"));
}

TEST(LogLevel, IsSixUnlessToldOtherwise) {
  EXPECT_EQ(tarvex::LogLevelFrom(nullptr), 6);
  EXPECT_EQ(tarvex::LogLevelFrom(""), 6);
  EXPECT_EQ(tarvex::LogLevelFrom("8"), 6);
  EXPECT_EQ(tarvex::LogLevelFrom("33"), 6);
  EXPECT_EQ(tarvex::LogLevelFrom("0"), 0);
  EXPECT_EQ(tarvex::LogLevelFrom("7"), 7);
}

TEST(SystemLog, FormatsAsPrintfDoes) {
  testing::internal::CaptureStderr();
  __sys_log(3, "source", "Function", 7, "%s and %d", "text", 5);
  EXPECT_THAT(testing::internal::GetCapturedStderr(),
              MatchesRegex(".* source Function:7 text and 5\n"));
}

TEST(SystemLog, WritesLongTextsWhole) {
  for (const std::size_t length : {511U, 512U, 513U, 65536U}) {
    const std::string text(length, 'x');
    EXPECT_THAT(Logged(text), EndsWith(":7 " + text + "\n")) << length;
  }
}

TEST(SystemLog, CutsWhatIsBeyondAllMeasureAndSaysSo) {
  const std::string text(65537, 'x');
  EXPECT_THAT(Logged(text), EndsWith(":7 " + std::string(65536, 'x') + " [cut]\n"));
}

TEST(SystemLog, KeepsTheLinesOfAText) { EXPECT_THAT(Logged("a\nb"), EndsWith(" a\nb\n")); }

TEST(SystemLog, KeepsTheLatestError) {
  const auto before = std::chrono::system_clock::now();
  Logged("first");
  Logged(std::string(1000, 'x'));
  testing::internal::CaptureStderr();
  __sys_log(4, "source", "Function", 7, "only a warning");
  testing::internal::GetCapturedStderr();
  const auto error = tarvex::LatestError();
  ASSERT_TRUE(error);
  EXPECT_EQ(error->text, "source: " + std::string(492, 'x'));
  EXPECT_GE(error->time, before);
}

TEST(SystemLog, LeavesErrnoAlone) {
  errno = EPIPE;
  Logged("text");
  EXPECT_EQ(errno, EPIPE);
}

TEST(SystemLog, WritesInformationButNoDebugEntriesByDefault) {
  EXPECT_THAT(LoggedBy({"6", "text", "1", "1"}, {}), EndsWith(" info probe main:42 text\n"));
  EXPECT_EQ(LoggedBy({"7", "text", "1", "1"}, {}), "");
}

TEST(SystemLog, FiltersByTheLevelOfTheEnvironment) {
  EXPECT_THAT(LoggedBy({"7", "text", "1", "1"}, {{"TARVEX_LOG_LEVEL", "7"}}), HasSubstr(" debug "));
  EXPECT_EQ(LoggedBy({"4", "text", "1", "1"}, {{"TARVEX_LOG_LEVEL", "3"}}), "");
}

TEST(SystemLog, KeepsStandardErrorEmptyWhenItGoesToSyslog) {
  EXPECT_EQ(LoggedBy({"3", "text", "1", "1"}, {{"TARVEX_LOG_TARGET", "syslog"}}), "");
}

TEST(SystemLog, DoesNotMixTheEntriesOfThreads) {
  const std::string text(3000, 'x');
  std::istringstream lines(LoggedBy({"3", text, "4", "50"}, {}));
  int count = 0;
  for (std::string line; std::getline(lines, line); ++count) {
    ASSERT_THAT(line, EndsWith(" error probe main:42 " + text));
    ASSERT_EQ(line.size(), text.size() + std::string("2026-01-30 23:59:59.045 ").size() +
                               std::string("error probe main:42 ").size());
  }
  EXPECT_EQ(count, 200);
}

}  // namespace
