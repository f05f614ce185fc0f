#include "platform/log_writer.h"

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <csignal>
#include <memory>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using testing::EndsWith;
using testing::HasSubstr;

constexpr int kPipeSize = 4 * 4096;

/// A pipe of four pages, whose reader is the test.
class LogPipe : public testing::Test {
 protected:
  LogPipe() {
    EXPECT_EQ(pipe2(ends_, O_CLOEXEC), 0);
    EXPECT_EQ(fcntl(ends_[1], F_SETPIPE_SZ, kPipeSize), kPipeSize);
    writer_ = std::make_unique<tarvex::LogWriter>(ends_[1]);
  }
  ~LogPipe() override {
    close(ends_[0]);
    close(ends_[1]);
  }

  /// Writes more than there is room for.
  void Overflow(const std::string& entry) {
    for (std::size_t written = 0; written < 10UL * kPipeSize; written += entry.size()) {
      writer_->Write(entry);
    }
  }

  /// What is in the pipe; leaves it empty.
  std::string Read() {
    std::string text;
    pollfd readable{ends_[0], POLLIN, 0};
    while (poll(&readable, 1, 0) == 1) {
      char buffer[4096];
      text.append(buffer, static_cast<std::size_t>(read(ends_[0], buffer, sizeof(buffer))));
    }
    return text;
  }

  int ends_[2] = {-1, -1};
  std::unique_ptr<tarvex::LogWriter> writer_;
};

TEST_F(LogPipe, TakesEntriesOneAfterTheOther) {
  writer_->Write("one\n");
  writer_->Write("two\n");
  EXPECT_EQ(Read(), "one\ntwo\n");
}

TEST_F(LogPipe, ThatIsFullHoldsNobodyUp) {
  Overflow("entry\n");  // the test ends when this does
  EXPECT_THAT(Read(), EndsWith("entry\n"));
}

TEST_F(LogPipe, ThatHasRoomAgainIsToldHowManyEntriesAreMissing) {
  for (int i = 0; i < 20; ++i) {
    writer_->Write(std::string(2047, 'x') + "\n");
  }
  const std::size_t missing = 20 - Read().size() / 2048;
  writer_->Write("next\n");
  writer_->Write("last\n");
  const std::string text = Read();
  EXPECT_THAT(text, HasSubstr(" " + std::to_string(missing) + " log entries dropped: "));
  EXPECT_THAT(text, EndsWith("\nnext\nlast\n"));
}

TEST_F(LogPipe, GetsTheRestOfAnEntryThatDidNotFit) {
  const std::string entry = std::string(60000, 'x') + "\n";
  writer_->Write(entry);
  std::string text = Read();
  EXPECT_LT(text.size(), entry.size());
  while (text.size() < entry.size()) {
    writer_->Write("dropped\n");
    text += Read();
  }
  EXPECT_EQ(text.substr(0, entry.size()), entry);
}

TEST_F(LogPipe, HasWholeLinesOnlyHoweverItIsRead) {
  const std::string entry = std::string(4999, 'x') + "\n";
  std::string text;
  for (int i = 0; i < 200; ++i) {
    writer_->Write(entry);
    char buffer[3000];
    text.append(buffer, static_cast<std::size_t>(read(ends_[0], buffer, sizeof(buffer))));
  }
  text += Read();
  std::istringstream lines(text.substr(0, text.rfind('\n') + 1));
  for (std::string line; std::getline(lines, line);) {
    EXPECT_TRUE(line + "\n" == entry || line.find("dropped") != std::string::npos) << line;
  }
}

TEST_F(LogPipe, WithoutAReaderTakesNothingAndHarmsNobody) {
  const auto before = std::signal(SIGPIPE, SIG_IGN);
  close(ends_[0]);
  Overflow("entry\n");
  std::signal(SIGPIPE, before);
  ends_[0] = dup(ends_[1]);
}

TEST_F(LogPipe, IsLeftAsItIs) {
  writer_->Write("entry\n");
  EXPECT_EQ(fcntl(ends_[1], F_GETFL) & O_NONBLOCK, 0);
}

TEST_F(LogPipe, TakesTheEntriesOfThreadsWhole) {
  std::vector<std::thread> threads;
  for (const char* entry : {"aaa\n", "bbb\n", "ccc\n"}) {
    threads.emplace_back([this, entry] {
      for (int i = 0; i < 500; ++i) {
        writer_->Write(entry);
      }
    });
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
  const std::string text = Read();
  EXPECT_EQ(text.size(), 3 * 500 * 4U);
  EXPECT_EQ(text.find_first_not_of("abc\n"), std::string::npos);
}

}  // namespace
