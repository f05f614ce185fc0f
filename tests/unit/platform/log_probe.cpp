// Logs what it is told to: log_probe PRIORITY TEXT [THREADS ENTRIES].
#include <cstdlib>
#include <string>
#include <thread>
#include <vector>

#include "sys_log.h"

int main(int argc, char** argv) {
  const int priority = std::atoi(argv[1]);
  const int threads = argc > 3 ? std::atoi(argv[3]) : 1;
  const int entries = argc > 4 ? std::atoi(argv[4]) : 1;
  std::vector<std::thread> writers;
  for (int thread = 0; thread < threads; ++thread) {
    writers.emplace_back([&] {
      for (int entry = 0; entry < entries; ++entry) {
        __sys_log(priority, "probe", "main", 42, "%s", argv[2]);
      }
    });
  }
  for (std::thread& writer : writers) {
    writer.join();
  }
}
