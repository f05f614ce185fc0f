#include "virtual_camera/surroundings/pty_lines.h"

#include <chrono>
#include <fstream>

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include "desk_camera.h"

namespace virtual_camera {
namespace {

namespace fs = std::filesystem;

class PseudoTerminals : public testing::Test {
 protected:
  void Begin() {
    pty.Begin(directory.path(),
              [this](int channel, const std::string& bytes) { typed[channel] += bytes; });
  }

  std::string LinkOf(int channel) const {
    return directory.path() + "/rs485-" + std::to_string(channel);
  }

  int OpenTerminal(int channel) { return open(LinkOf(channel).c_str(), O_RDWR | O_NOCTTY); }

  // Lets the camera's side run until a text has come in, or a deadline has passed.
  bool WaitTyped(int channel, const std::string& text) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (typed[channel] != text && std::chrono::steady_clock::now() < deadline) {
      context.run_one_for(std::chrono::milliseconds(100));
    }
    return typed[channel] == text;
  }

  // What comes out of a terminal until so many bytes are there, or a deadline has passed.
  static std::string ReadFrom(int terminal, size_t length) {
    std::string bytes;
    pollfd waited{terminal, POLLIN, 0};
    while (bytes.size() < length && poll(&waited, 1, 10000) == 1) {
      char buffer[64];
      const ssize_t got = read(terminal, buffer, sizeof(buffer));
      if (got <= 0) {
        break;
      }
      bytes.append(buffer, static_cast<size_t>(got));
    }
    return bytes;
  }

  TestDirectory directory;
  boost::asio::io_context context;
  std::map<int, std::string> typed;
  PtyLines pty{context};
};

TEST_F(PseudoTerminals, CarryBytesOutUnchanged) {
  Begin();
  const int terminal = OpenTerminal(0);
  const std::string bytes("a\0\r\n\xff\x03", 6);
  EXPECT_EQ(pty.Write(0, bytes), bytes.size());
  EXPECT_EQ(ReadFrom(terminal, bytes.size()), bytes);
  close(terminal);
}

TEST_F(PseudoTerminals, CarryBytesInUnchanged) {
  Begin();
  const int terminal = OpenTerminal(1);
  const std::string bytes("b\0\r\n\x04", 5);
  ASSERT_EQ(write(terminal, bytes.data(), bytes.size()), static_cast<ssize_t>(bytes.size()));
  EXPECT_TRUE(WaitTyped(1, bytes));
  EXPECT_EQ(typed[0], "");
  close(terminal);
}

TEST_F(PseudoTerminals, WorkOnAfterATerminalHasComeAndGone) {
  Begin();
  close(OpenTerminal(0));
  const int terminal = OpenTerminal(0);
  ASSERT_EQ(write(terminal, "again", 5), 5);
  EXPECT_TRUE(WaitTyped(0, "again"));
  close(terminal);
}

TEST_F(PseudoTerminals, DoNotSpinWhileNobodyHasThemOpen) {
  Begin();
  close(OpenTerminal(0));
  EXPECT_EQ(context.poll(), 0U);
}

TEST_F(PseudoTerminals, TakeABoundedAmountThatNobodyReads) {
  Begin();
  const std::string packet(1016, 'x');
  size_t taken = 0;
  for (int i = 0; i < 10000; ++i) {
    taken += pty.Write(0, packet);
  }
  EXPECT_GT(taken, 0U);
  EXPECT_LT(taken, size_t{1000000});
  EXPECT_EQ(pty.Write(0, packet), 0U);
}

TEST_F(PseudoTerminals, DoNotEchoToTheCamera) {
  Begin();
  pty.Write(0, "out");
  EXPECT_EQ(context.poll(), 0U);
  EXPECT_EQ(typed[0], "");
}

TEST_F(PseudoTerminals, TakeTheirLinksOverFromAnEarlierCamera) {
  fs::create_symlink("/nowhere", LinkOf(0));
  Begin();
  EXPECT_EQ(fs::read_symlink(LinkOf(0)), pty.Path(0));
}

TEST_F(PseudoTerminals, LeaveAPersonsFileAlone) {
  std::ofstream(LinkOf(1)) << "mine";
  EXPECT_THROW(Begin(), std::runtime_error);
  EXPECT_TRUE(fs::is_regular_file(LinkOf(1)));
}

TEST_F(PseudoTerminals, TakeTheirLinksAwayAtTheEnd) {
  {
    PtyLines short_lived(context);
    short_lived.Begin(directory.path(), [](int, const std::string&) {});
    EXPECT_TRUE(fs::is_symlink(LinkOf(0)));
  }
  EXPECT_FALSE(fs::is_symlink(LinkOf(0)));
}

}  // namespace
}  // namespace virtual_camera
