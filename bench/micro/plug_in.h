// The built library as a host loads it.
#pragma once

#include <string>

#include <boost/shared_ptr.hpp>

#include "base_adapter.h"
#include "bench_platform.h"

namespace bench {

struct PlugIn {
  BaseAdapter* adapter;
  boost::shared_ptr<EventService> events;
};

/// This build's, or the one that the environment names as MQTTADAPTER_LIBRARY.
const char* LibraryFile();

/// Loaded on the first call, initialised with an image function that returns a short address, and
/// kept until the process ends. Ends the process with a message where that fails.
PlugIn& ThePlugIn();

}  // namespace bench
