// A function that a host installs in the platform for its whole process.
#pragma once

#include <memory>
#include <mutex>
#include <utility>

namespace tarvex {

/// Any thread.
template <typename Function>
class Hook {
 public:
  /// Installs a function; an empty one takes the present one away.
  void Set(Function function) {
    auto fresh = function ? std::make_shared<const Function>(std::move(function)) : nullptr;
    const std::lock_guard<std::mutex> lock(mutex_);
    current_.swap(fresh);
  }

  /// @return the function, null where there is none. It may replace itself while it is
  ///         called: the caller keeps it for that long.
  std::shared_ptr<const Function> Get() const {
    const std::lock_guard<std::mutex> lock(mutex_);
    return current_;
  }

 private:
  mutable std::mutex mutex_;
  std::shared_ptr<const Function> current_;
};

}  // namespace tarvex
