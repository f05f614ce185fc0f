// A TCP relay on the loopback interface that can be told to fail.
#pragma once

#include <atomic>
#include <cstddef>
#include <memory>

/// Relays connections to a port of 127.0.0.1, on a thread of its own. The operations may
/// be called from any thread.
class TcpProxy {
 public:
  /// Throws boost::system::system_error when there is no port to listen on.
  explicit TcpProxy(int target_port);
  ~TcpProxy();

  TcpProxy(const TcpProxy&) = delete;
  TcpProxy& operator=(const TcpProxy&) = delete;

  int port() const;

  /// While it refuses, a new connection is closed at once; those that stand go on.
  void RefuseNew(bool refuse);

  /// Resets every connection after that many more bytes have passed, either way, also in
  /// the midst of what is being sent.
  void CutAfter(std::size_t bytes);

  /// Cuts that have happened.
  int cuts() const;

 private:
  class Relay;
  std::unique_ptr<Relay> relay_;
};
