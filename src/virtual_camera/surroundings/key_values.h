// The device settings that others read from the key-value databases.
#pragma once

#include <functional>
#include <map>
#include <string>
#include <vector>

namespace virtual_camera {

/// A text in one of the key-value databases.
struct KeyValue {
  std::string database;
  std::string key;
  std::string value;
  bool is_newer = false;  ///< than what the database may hold already
};

/// Where the values are kept for others to read. An interface so that tests need no
/// server. Used on the camera's thread.
class KeyValueStore {
 public:
  virtual ~KeyValueStore() = default;

  /// Begins to keep the values there: those that are missing or newer are written, for
  /// others the database's own value is taken over.
  /// @param on_adopted called on the camera's thread with a value taken over.
  virtual void Begin(
      const std::vector<KeyValue>& values,
      std::function<void(const std::string& key, const std::string& value)> on_adopted) = 0;

  /// Writes a value.
  /// @param done called on the camera's thread: whether it is in the database. When not,
  ///             it will be written as soon as the server is there.
  virtual void Put(const std::string& key, const std::string& value,
                   std::function<void(bool written)> done) = 0;
};

}  // namespace virtual_camera
