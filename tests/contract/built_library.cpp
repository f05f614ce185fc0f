// Which file the contract's tests are about: this build's library, or the one that the environment
// names as MQTTADAPTER_LIBRARY, which another compiler may have made.
#include <cstdlib>

#include "adapter_test.h"

const char* LibraryFile() {
  const char* named = getenv("MQTTADAPTER_LIBRARY");
  return named != nullptr ? named : MQTTADAPTER_LIBRARY;
}
