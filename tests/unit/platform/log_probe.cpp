// Logs what it is told to: log_probe PRIORITY TEXT THREADS ENTRIES.
#include <string>
#include <thread>
#include <vector>

#include "sys_log.h"

int main(int, char** argv) {
  const int priority = std::stoi(argv[1]);
  const std::string text = argv[2];
  const int entries = std::stoi(argv[4]);
  std::vector<std::thread> writers(std::stoul(argv[3]));
  for (std::thread& writer : writers) {
    writer = std::thread([&] {
      for (int entry = 0; entry < entries; ++entry) {
        __sys_log(priority, "probe", "main", 42, "%s", text.c_str());
      }
    });
  }
  for (std::thread& writer : writers) {
    writer.join();
  }
}
