// console: shows a desk in a browser until SIGINT or SIGTERM.
#include <csignal>
#include <cstdio>
#include <exception>

#include <boost/asio/io_context.hpp>
#include <boost/asio/signal_set.hpp>

#include "console/console.h"
#include "console/options.h"
#include "platform/log.h"

namespace {

/// A handler that throws ends its own work only.
void RunOn(boost::asio::io_context& context) {
  for (;;) {
    try {
      context.run();
      return;
    } catch (const std::exception& failure) {
      SYS_LOG(kLogError, "%s", failure.what());
    }
  }
}

int RunConsole(const console::ConsoleOptions& options) {
  boost::asio::io_context context;
  boost::asio::signal_set signals(context, SIGINT, SIGTERM);
  std::signal(SIGPIPE, SIG_IGN);
  signals.async_wait(
      [&context](const boost::system::error_code& /*error*/, int /*signal*/) { context.stop(); });
  const console::Console the_console(context, options);
  (void)std::printf("console ready: %s\n", the_console.Address().c_str());
  (void)std::fflush(stdout);
  RunOn(context);
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  console::ConsoleOptions options;
  if (const std::optional<int> exit_status = console::ParseOptions(argc, argv, &options)) {
    return *exit_status;
  }
  try {
    return RunConsole(options);
  } catch (const std::exception& failure) {
    (void)std::fprintf(stderr, "console: %s\n", failure.what());
    return 1;
  }
}
