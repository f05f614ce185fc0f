// A message of the camera's bus, which the host acknowledges. The input: the topic, a line, and the
// body's bytes.
#include "fuzz_host.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  std::string input(reinterpret_cast<const char*>(data), size);
  const std::string topic = fuzz::TakeUpTo('\n', &input);
  fuzz::Host host;
  host.Deliver(topic, input);
  host.Tick(0);
  host.AcknowledgeAll();
  return 0;
}
