// Runs each piece of work under callgrind and has it dump its counts after each: `./dev bench
// --gate` reads them. Prints a line of JSON for each dump, in their order.
#include <valgrind/callgrind.h>

#include <cstdio>
#include <functional>

#include "bench_platform.h"
#include "work.h"

namespace {

constexpr int kWarmUp = 5;
constexpr int kRuns = 50;

void Count(const char* way, const bench::Work& work, const std::function<void()>& run) {
  for (int i = 0; i < kWarmUp; ++i) {
    run();
  }
  const unsigned long long before = bench::Allocations();
  CALLGRIND_ZERO_STATS;
  for (int i = 0; i < kRuns; ++i) {
    run();
  }
  CALLGRIND_DUMP_STATS;
  printf(
      "{\"name\":\"%s\",\"way\":\"%s\",\"runs\":%d,\"allocations\":%llu,\"goal\":%.2f,"
      "\"goal_allocations\":%.2f}\n",
      work.name.c_str(), way, kRuns, bench::Allocations() - before, work.goal,
      work.goal_allocations);
  fflush(stdout);
}

}  // namespace

int main() {
  for (const bench::Work& work : bench::AllWork()) {
    work.prepare();
    Count("plug_in", work, work.plug_in);
    Count("naive", work, work.naive);
  }
}
