#include "fuzz_check.h"

#include <cstdio>
#include <cstdlib>

namespace fuzz {

void Check(bool holds, const std::string& what) {
  if (!holds) {
    fprintf(stderr, "does not hold: %s\n", what.c_str());
    abort();
  }
}

std::string TakeUpTo(char end, std::string* input) {
  const std::size_t at = input->find(end);
  std::string taken = input->substr(0, at);
  input->erase(0, at == std::string::npos ? at : at + 1);
  return taken;
}

}  // namespace fuzz

/// No stacks of allocations, and little freed memory kept back: both cost more time than most
/// inputs do. ASAN_OPTIONS sets them otherwise, to look at what was found.
extern "C" const char* __asan_default_options() {
  return "malloc_context_size=0:quarantine_size_mb=16";
}

extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/) {
  setenv("TARVEX_LOG_LEVEL", "0", 1);  // of the desk's own platform
  // What the plug-in prints for people.
  return freopen("/dev/null", "w", stdout) != nullptr ? 0 : 1;
}
