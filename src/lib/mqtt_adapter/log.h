// The adapter's entries in the system log.
#pragma once

#include "sys_log.h"

namespace qex {

/// Syslog severities in use.
constexpr int kLogError = 3;
constexpr int kLogWarning = 4;
constexpr int kLogInfo = 6;
constexpr int kLogDebug = 7;

}  // namespace qex

/// Logs under the name of an operation, for what is done on its behalf elsewhere.
#define ADAPTER_LOG_AS(function, priority, ...) \
  __sys_log((priority), "mqtt_adapter", (function), __LINE__, __VA_ARGS__)

/// Logs under the name of the current function.
#define ADAPTER_LOG(priority, ...) ADAPTER_LOG_AS(__func__, priority, __VA_ARGS__)
