#include "virtual_camera/surroundings/pty_lines.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <stdexcept>
#include <utility>

#include <fcntl.h>
#include <termios.h>
#include <unistd.h>

#include <boost/asio/buffer.hpp>
#include <boost/asio/posix/stream_descriptor.hpp>

#include "platform/log.h"

namespace virtual_camera {

namespace fs = std::filesystem;

namespace {

[[noreturn]] void FailAtTerminal(const std::string& what) {
  throw std::runtime_error(what + ": " + std::strerror(errno));
}

// Replaces an earlier camera's link, but no other file.
void Link(const fs::path& target, const fs::path& link) {
  std::error_code error;
  if (fs::is_symlink(fs::symlink_status(link, error))) {
    fs::remove(link, error);
  }
  fs::create_symlink(target, link, error);
  if (error) {
    throw std::runtime_error(link.string() + ": " + error.message());
  }
}

}  // namespace

struct PtyLines::Line {
  explicit Line(boost::asio::io_context& context) : master(context) {}
  ~Line() {
    if (slave >= 0) {
      close(slave);
    }
    std::error_code ignored;
    if (!link.empty() && fs::read_symlink(link, ignored) == path) {
      fs::remove(link, ignored);
    }
  }
  Line(const Line&) = delete;
  Line& operator=(const Line&) = delete;

  void Open(const std::string& link_path) {
    const int fd = posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
    if (fd < 0) {
      FailAtTerminal("no pseudo-terminal");
    }
    master.assign(fd);
    char name[64];
    if (grantpt(fd) != 0 || unlockpt(fd) != 0 || ptsname_r(fd, name, sizeof(name)) != 0) {
      FailAtTerminal("no pseudo-terminal");
    }
    slave = open(name, O_RDWR | O_NOCTTY | O_CLOEXEC);
    if (slave < 0) {
      FailAtTerminal(name);
    }
    // Raw: bytes pass unchanged, and nothing is echoed back to the camera.
    termios settings{};
    if (tcgetattr(slave, &settings) != 0) {
      FailAtTerminal(name);
    }
    cfmakeraw(&settings);
    if (tcsetattr(slave, TCSANOW, &settings) != 0) {
      FailAtTerminal(name);
    }
    master.non_blocking(true);
    path = name;
    Link(path, link_path);
    link = link_path;
  }

  boost::asio::posix::stream_descriptor master;
  int slave = -1;  // held open, or the master reads an error whenever nobody else has it
  std::string path;
  std::string link;
  std::array<char, 1016> buffer{};
};

PtyLines::PtyLines(boost::asio::io_context& context) : context_(context) {}
PtyLines::~PtyLines() = default;

void PtyLines::Begin(const std::string& directory,
                     std::function<void(int, const std::string&)> on_input) {
  on_input_ = std::move(on_input);
  for (int channel = 0; channel < kChannels; ++channel) {
    auto& line = lines_[static_cast<size_t>(channel)];
    line = std::make_unique<Line>(context_);
    line->Open(directory + "/rs485-" + std::to_string(channel));
    ReadNext(channel);
  }
}

void PtyLines::ReadNext(int channel) {
  Line& line = *lines_[static_cast<size_t>(channel)];
  line.master.async_read_some(
      boost::asio::buffer(line.buffer),
      [this, channel](const boost::system::error_code& error, size_t length) {
        if (error != boost::asio::error::operation_aborted) {
          OnRead(channel, error, length);
        }
      });
}

void PtyLines::OnRead(int channel, const boost::system::error_code& error, size_t length) {
  if (error) {
    SYS_LOG(kLogError, "channel %d is not read any more: %s", channel, error.message().c_str());
    return;
  }
  on_input_(channel, std::string(At(channel).buffer.data(), length));
  ReadNext(channel);
}

size_t PtyLines::Write(int channel, const std::string& bytes) {
  boost::system::error_code error;
  // One call: what the kernel does not take at once is not waited for.
  return lines_[static_cast<size_t>(channel)]->master.write_some(boost::asio::buffer(bytes), error);
}

std::string PtyLines::Path(int channel) const { return At(channel).path; }

}  // namespace virtual_camera
