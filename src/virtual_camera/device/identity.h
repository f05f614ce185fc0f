// The camera's name, address and user data.
#pragma once

#include <functional>
#include <string>

#include "virtual_camera/store/settings.h"
#include "virtual_camera/surroundings/announcer.h"
#include "virtual_camera/surroundings/key_values.h"

namespace virtual_camera {

/// Values of a new data directory.
struct IdentityDefaults {
  std::string name = "Virtual camera";
  std::string ip = "192.168.1.100";
  std::string user_data = "virtual-camera";
};

/// Keeps name, address and user data over restarts, and in the key-value databases.
/// Used on the camera's thread.
class Identity {
 public:
  /// Called when a change is kept and announced; false: it is not yet in the key-value
  /// database.
  using Done = std::function<void(bool in_database)>;

  /// All but the defaults must outlive this.
  Identity(Settings& settings, KeyValueStore& store, Announcer& announcer,
           const IdentityDefaults& defaults);

  /// As shown to people, not encoded.
  std::string Name() const;
  const std::string& ip() const { return ip_; }

  /// Throw RequestError for an empty or overlong name and for what is no IP address.
  void Rename(const std::string& name, Done done);
  void Readdress(const std::string& ip, Done done);

 private:
  void Put(const std::string& key, const std::string& value, std::function<void(bool)> done);
  void NoteWritten(const std::string& key, bool written);
  void Adopt(const std::string& key, const std::string& value);

  Settings& settings_;
  KeyValueStore& store_;
  Announcer& announcer_;
  std::string name_base64_;
  std::string ip_;
};

}  // namespace virtual_camera
