#include "plug_in.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>

#include "sigslot.h"

namespace bench {
namespace {

/// A host that takes what is published and does nothing with it.
class Host : public sigslot::has_slots<sigslot::single_threaded> {
 public:
  void OnPush(const std::string& /*name*/, const Json::Value& /*payload*/,
              const std::string& /*version*/, unsigned long long /*tag*/) {}
};

PlugIn Load() {
  void* library = dlopen(LibraryFile(), RTLD_NOW | RTLD_LOCAL);
  if (library == nullptr) {
    fprintf(stderr, "%s\n", dlerror());
    exit(1);
  }
  const auto create = reinterpret_cast<decltype(&create_adapter)>(dlsym(library, "create_adapter"));
  static Host host;
  PlugIn plug_in;
  plug_in.events.reset(new EventService);
  plug_in.adapter = create(plug_in.events, 1);
  plug_in.adapter->SignalPushMessage.connect(&host, &Host::OnPush);
  plug_in.adapter->Initialize([](const std::string& /*source*/, const std::string& name) {
    return "http://127.0.0.1:6180/pictures/" + name;
  });
  return plug_in;
}

}  // namespace

const char* LibraryFile() {
  const char* named = getenv("MQTTADAPTER_LIBRARY");
  return named != nullptr ? named : MQTTADAPTER_LIBRARY;
}

PlugIn& ThePlugIn() {
  static PlugIn plug_in = Load();
  return plug_in;
}

}  // namespace bench
