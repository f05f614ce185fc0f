// A variable of the environment for the length of a test.
#pragma once

#include <cstdlib>
#include <optional>
#include <string>

class ScopedEnvironment {
 public:
  ScopedEnvironment(const std::string& name, const std::string& value) : name_(name) {
    const char* before = std::getenv(name.c_str());
    if (before != nullptr) {
      before_ = before;
    }
    setenv(name.c_str(), value.c_str(), 1);
  }
  ~ScopedEnvironment() {
    if (before_) {
      setenv(name_.c_str(), before_->c_str(), 1);
    } else {
      unsetenv(name_.c_str());
    }
  }
  ScopedEnvironment(const ScopedEnvironment&) = delete;
  ScopedEnvironment& operator=(const ScopedEnvironment&) = delete;

 private:
  std::string name_;
  std::optional<std::string> before_;
};
