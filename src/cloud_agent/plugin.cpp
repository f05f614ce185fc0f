#include "cloud_agent/plugin.h"

#include <dlfcn.h>

namespace agent {

std::shared_ptr<Plugin> Plugin::Load(const std::string& path, std::string* error) {
  // Without a slash dlopen() would search the system's library path.
  const std::string file = path.find('/') == std::string::npos ? "./" + path : path;
  void* library = dlopen(file.c_str(), RTLD_NOW | RTLD_LOCAL);
  if (library == nullptr) {
    const char* reason = dlerror();
    *error = path + ": cannot be loaded: " + (reason != nullptr ? reason : "unknown reason");
    return nullptr;
  }
  std::shared_ptr<Plugin> plugin(new Plugin(library));
  plugin->create_ = reinterpret_cast<CreateFunction>(dlsym(library, "create_adapter"));
  if (plugin->create_ == nullptr) {
    *error = path + ": exports no create_adapter";
    return nullptr;
  }
  plugin->destroy_ = reinterpret_cast<DestroyFunction>(dlsym(library, "destory_adapter"));
  if (plugin->destroy_ == nullptr) {
    *error = path + ": exports no destory_adapter";
    return nullptr;
  }
  return plugin;
}

Plugin::~Plugin() { dlclose(library_); }

AdapterPtr Plugin::CreateAdapter(const std::shared_ptr<Plugin>& plugin,
                                 boost::shared_ptr<tarvex::EventService> event_service, int id) {
  return AdapterPtr(plugin->create_(event_service, id),
                    [plugin](BaseAdapter* adapter) { plugin->destroy_(adapter); });
}

}  // namespace agent
