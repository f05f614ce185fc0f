// How the platform's own sources write to the system log.
#pragma once

#include "sys_log.h"

#define PLATFORM_LOG(priority, ...) \
  __sys_log((priority), "platform", static_cast<const char*>(__func__), __LINE__, __VA_ARGS__)

namespace tarvex {

constexpr int kLogError = 3;
constexpr int kLogWarning = 4;
constexpr int kLogInfo = 6;
constexpr int kLogDebug = 7;

}  // namespace tarvex
