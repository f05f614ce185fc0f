// A plug-in library: loading it, and the life of the adapter that it makes.
#pragma once

#include <functional>
#include <memory>
#include <string>

#include <boost/shared_ptr.hpp>

#include "base_adapter.h"
#include "tarvex/event_service.h"

namespace agent {

/// An adapter that goes back to the plug-in that made it.
using AdapterPtr = std::unique_ptr<BaseAdapter, std::function<void(BaseAdapter*)>>;

class Plugin {
 public:
  /// Loads a plug-in by path; a bare file name means the working directory.
  /// @param error receives one line that says what is wrong with it.
  /// @return null when it cannot be used.
  static std::shared_ptr<Plugin> Load(const std::string& path, std::string* error);

  /// The library's GNU build id in hexadecimal; empty where it has none.
  std::string BuildId() const;

  ~Plugin();
  Plugin(const Plugin&) = delete;
  Plugin& operator=(const Plugin&) = delete;

  /// @return an adapter, empty when the plug-in made none. It keeps the library
  ///         loaded for as long as it lives.
  static AdapterPtr CreateAdapter(const std::shared_ptr<Plugin>& plugin,
                                  boost::shared_ptr<tarvex::EventService> event_service, int id);

 private:
  using CreateFunction = BaseAdapter* (*)(boost::shared_ptr<tarvex::EventService>, int);
  using DestroyFunction = void (*)(BaseAdapter*);

  explicit Plugin(void* library) : library_(library) {}

  void* library_;
  CreateFunction create_ = nullptr;
  DestroyFunction destroy_ = nullptr;
};

}  // namespace agent
