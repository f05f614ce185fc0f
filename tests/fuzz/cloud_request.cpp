// A request of the cloud, with a camera that answers well. The input: the name and the version, a
// line each, and the payload's text.
#include "fuzz_host.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  std::string input(reinterpret_cast<const char*>(data), size);
  const std::string name = fuzz::TakeUpTo('\n', &input);
  const std::string version = fuzz::TakeUpTo('\n', &input);
  fuzz::Host host;
  host.Request(name, fuzz::AnyValue(input), version);
  host.Tick(60000);
  return 0;
}
