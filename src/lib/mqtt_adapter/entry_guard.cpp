#include "entry_guard.h"

#include <exception>

#include "log.h"

namespace qex {

void LogCaughtException(const char* function) noexcept {
  try {
    throw;
  } catch (const std::exception& caught) {
    ADAPTER_LOG_AS(function, kLogError, "caught: %s", caught.what());
  } catch (...) {
    ADAPTER_LOG_AS(function, kLogError, "caught: unknown exception");
  }
}

}  // namespace qex
