// What a process has cost so far, as the kernel tells it.
#pragma once

#include <sys/types.h>

#include <cstdint>

struct ProcessCost {
  std::int64_t cpu_ns = 0;  ///< of all threads that are there now
  std::int64_t rss_kb = 0;
  std::int64_t private_kb = 0;  ///< of it, what no other process shares
  int threads = 0;
};

/// All zero for a process that is not there.
ProcessCost CostOf(pid_t pid);
