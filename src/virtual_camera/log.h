// The camera's lines in the system log.
#pragma once

#include "sys_log.h"

// Priorities are those of syslog; the text takes printf's conversions.
#define CAMERA_LOG(priority, ...) \
  __sys_log(priority, "virtual_camera", __func__, __LINE__, __VA_ARGS__)

namespace virtual_camera {

constexpr int kLogError = 3;
constexpr int kLogWarning = 4;
constexpr int kLogInfo = 6;
constexpr int kLogDebug = 7;

}  // namespace virtual_camera
