// What a key-value client knows of its database.
#pragma once

#include <chrono>
#include <condition_variable>
#include <map>
#include <mutex>
#include <string>

namespace tarvex {

/// What has become of one key.
struct KvChange {
  std::string key;
  std::string value;
  bool is_removal = false;
};

/// Key to value. Callable from any thread.
class KvCopy {
 public:
  using Values = std::map<std::string, std::string>;

  /// @param value untouched when there is no such key.
  bool Get(const std::string& key, std::string* value) const;

  /// Takes over a whole database as it is now.
  void Replace(Values values);

  void Apply(const KvChange& change);
  static void Apply(const KvChange& change, Values* values);

  /// @return whether Replace was called, waiting for it if need be.
  bool WaitForFirst(std::chrono::milliseconds deadline) const;

 private:
  mutable std::mutex mutex_;
  mutable std::condition_variable replaced_;
  bool is_complete_ = false;
  Values values_;
};

}  // namespace tarvex
