// The time that passports carry.
#pragma once

#include <chrono>

#include "console/passports/passport.h"

namespace console {

inline Time_us Now_us() {
  return std::chrono::duration_cast<std::chrono::microseconds>(
             std::chrono::system_clock::now().time_since_epoch())
      .count();
}

}  // namespace console
