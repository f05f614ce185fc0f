// Serial lines that a terminal program can open: pseudo-terminals.
#pragma once

#include <array>
#include <functional>
#include <memory>
#include <string>

#include <boost/asio/io_context.hpp>

#include "virtual_camera/surroundings/serial_lines.h"

namespace virtual_camera {

/// Raw pseudo-terminals, each with a symbolic link to it. The camera keeps both ends open,
/// so that a terminal program can be ended and started again; what nobody reads fills the
/// kernel's buffer, and the rest is dropped. Used on the thread of the io_context.
class PtyLines : public SerialLines {
 public:
  /// @param context must outlive this, and must not run after its end.
  explicit PtyLines(boost::asio::io_context& context);
  ~PtyLines() override;

  void Begin(const std::string& directory,
             std::function<void(int, const std::string&)> on_input) override;
  size_t Write(int channel, const std::string& bytes) override;
  std::string Path(int channel) const override;

 private:
  struct Line;

  void ReadNext(int channel);
  void OnRead(int channel, const boost::system::error_code& error, size_t length);
  const Line& At(int channel) const { return *lines_[static_cast<size_t>(channel)]; }

  boost::asio::io_context& context_;
  std::function<void(int, const std::string&)> on_input_;
  std::array<std::unique_ptr<Line>, kChannels> lines_;
};

}  // namespace virtual_camera
