#include "sys_log.h"

#include <syslog.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <utility>

#include "platform/latest_error.h"
#include "platform/log.h"
#include "platform/log_entry.h"
#include "platform/log_writer.h"

namespace {

/// Read once, so that an entry that is filtered out costs next to nothing.
struct LogSettings {
  int level = tarvex::LogLevelFrom(std::getenv("TARVEX_LOG_LEVEL"));
  bool to_syslog = WantsSyslog(std::getenv("TARVEX_LOG_TARGET"));

  static bool WantsSyslog(const char* target) {
    return target != nullptr && std::strcmp(target, "syslog") == 0;
  }
};

/// Never destroyed: other static objects may log as they die.
tarvex::LogWriter& StandardError() {
  static auto& writer = *new tarvex::LogWriter(STDERR_FILENO);
  return writer;
}

constexpr std::size_t kLongestLatestError = 500;

/// Never destroyed, as above.
struct ErrorKeeper {
  std::mutex mutex;
  std::optional<tarvex::LoggedError> latest;
};

ErrorKeeper& Errors() {
  static auto& errors = *new ErrorKeeper;
  return errors;
}

void KeepError(const char* source, const std::string& text) {
  tarvex::LoggedError error{std::chrono::system_clock::now(),
                            (source == nullptr ? "-" : source) + (": " + text)};
  error.text.resize(std::min(error.text.size(), kLongestLatestError));
  const std::lock_guard<std::mutex> lock(Errors().mutex);
  Errors().latest = std::move(error);
}

}  // namespace

std::optional<tarvex::LoggedError> tarvex::LatestError() {
  const std::lock_guard<std::mutex> lock(Errors().mutex);
  return Errors().latest;
}

void __sys_log(int priority, const char* source, const char* function, int line, const char* format,
               ...) {
  static const LogSettings settings;
  if (priority > settings.level || format == nullptr) {
    return;
  }
  const int caller_errno = errno;
  char* formatted = nullptr;
  std::va_list arguments;
  va_start(arguments, format);
  const int length = vasprintf(&formatted, format, arguments);
  va_end(arguments);
  const std::unique_ptr<char, decltype(&std::free)> owner(length < 0 ? nullptr : formatted,
                                                          std::free);
  try {
    // What cannot be formatted is better raw than not at all.
    std::string text(length < 0 ? format : formatted);
    if (text.size() > tarvex::kLongestLogText) {
      text.resize(tarvex::kLongestLogText);
      text.append(" [cut]");
    }
    if (priority <= kLogError) {
      KeepError(source, text);
    }
    if (settings.to_syslog) {
      syslog(LOG_MAKEPRI(LOG_DAEMON, priority & LOG_PRIMASK), "%s %s:%d %s",
             source == nullptr ? "-" : source, function == nullptr ? "-" : function, line,
             text.c_str());
    } else {
      StandardError().Write(tarvex::LogEntry(std::chrono::system_clock::now(), priority, source,
                                             function, line, text));
    }
  } catch (...) {
    // No memory for the entry: a log call never fails.
  }
  errno = caller_errno;
}
