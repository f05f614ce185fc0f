// A TCP relay on the loopback interface that can be told to fail.
#pragma once

#include <chrono>
#include <cstddef>
#include <memory>

namespace console {

/// Relays connections to a port of 127.0.0.1, on a thread of its own. The operations may
/// be called from any thread.
class TcpProxy {
 public:
  /// @param port where it listens; 0: a free one.
  /// Throws boost::system::system_error when it cannot listen there.
  explicit TcpProxy(int target_port, int port = 0);
  ~TcpProxy();

  TcpProxy(const TcpProxy&) = delete;
  TcpProxy& operator=(const TcpProxy&) = delete;

  int port() const;

  /// While it refuses, a new connection is closed at once; those that stand go on.
  void RefuseNew(bool refuse);

  /// While it is frozen nothing passes, and nothing is lost: what was sent waits.
  void Freeze(bool is_frozen);

  /// Whatever passes is this much late, and not faster than that.
  /// @param bytes_per_second each way of each connection; 0: as fast as it goes.
  void Limp(std::chrono::milliseconds delay, std::size_t bytes_per_second);

  /// Resets every connection.
  void Cut();

  /// Resets every connection after that many more bytes have passed, either way, also in
  /// the midst of what is being sent.
  void CutAfter(std::size_t bytes);

  /// Cuts of CutAfter() that have happened.
  int cuts() const;

  /// Connections that stand.
  int connections() const;

 private:
  class Relay;
  std::unique_ptr<Relay> relay_;
};

}  // namespace console
