#include "process_cost.h"

#include <filesystem>
#include <fstream>
#include <string>
#include <system_error>

ProcessCost CostOf(pid_t pid) {
  ProcessCost cost;
  const std::filesystem::path process = "/proc/" + std::to_string(pid);
  std::error_code gone;
  for (const auto& task : std::filesystem::directory_iterator(process / "task", gone)) {
    std::int64_t cpu_ns = 0;
    if (std::ifstream(task.path() / "schedstat") >> cpu_ns) {
      cost.cpu_ns += cpu_ns;
      ++cost.threads;
    }
  }
  std::ifstream memory(process / "smaps_rollup");
  std::string word;
  while (memory >> word) {
    std::int64_t kb = 0;
    if (word == "Rss:" && memory >> kb) {
      cost.rss_kb = kb;
    } else if ((word == "Private_Clean:" || word == "Private_Dirty:") && memory >> kb) {
      cost.private_kb += kb;
    }
  }
  return cost;
}
