// How the agent writes to the system log.
#pragma once

#include "sys_log.h"

/// Priorities are syslog's: 3 error, 4 warning, 6 information, 7 debug.
#define AGENT_LOG(priority, ...) \
  __sys_log((priority), "cloud_agent", __func__, __LINE__, __VA_ARGS__)
