// How the desk's programs write to the system log: SYS_LOG(kLogError, "%s", text).
// LOG_SOURCE, the name of the writing component, is set per target by CMake.
#pragma once

#include "sys_log.h"

/// Syslog severities in use.
enum LogLevel { kLogError = 3, kLogWarning = 4, kLogInfo = 6, kLogDebug = 7 };

/// Writes one entry under the name of the current function; the text takes printf's
/// conversions.
#define SYS_LOG(level, ...) \
  __sys_log((level), LOG_SOURCE, static_cast<const char*>(__func__), __LINE__, __VA_ARGS__)
