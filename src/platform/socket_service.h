// An event service whose thread reads and writes sockets between two messages.
#pragma once

#include <chrono>
#include <functional>

#include <boost/asio/io_context.hpp>

#include "tarvex/event_service.h"

namespace tarvex {

/// For connections of the same process that are to cost no thread of their own.
class SocketService : public EventService {
 public:
  using TimePoint = std::chrono::steady_clock::time_point;

  /// For timers, signals and sockets whose handlers are to run on the service's thread.
  /// They run within WaitUntil() too: one that does more than take in what has come posts it.
  virtual boost::asio::io_context& context() = 0;

  /// Runs what the context has, but delivers no message, until `is_over` says so or the
  /// deadline has come. On the service's thread, or before that is in its loop, or after.
  /// @return what `is_over` said last.
  virtual bool WaitUntil(TimePoint deadline, const std::function<bool()>& is_over) = 0;
};

}  // namespace tarvex
