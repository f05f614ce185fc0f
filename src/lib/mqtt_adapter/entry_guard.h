// Nothing that is thrown leaves the plug-in. Every entry point is a function-try
// block whose only handler ends here:
//
//   bool MQTTAdapter::Entry() try {
//     ...
//   } catch (...) {
//     return Guarded(__func__, false);
//   }
#pragma once

namespace qex {

/// Logs the exception being handled. Only to be called from a catch clause.
void LogCaughtException(const char* function) noexcept;

/// Logs the exception being handled and passes the failure value on.
template <class Result>
Result Guarded(const char* function, Result failure) noexcept {
  LogCaughtException(function);
  return failure;
}

}  // namespace qex
