// A real nats-server on the loopback interface, on a free port of its own.
#pragma once

#include <memory>
#include <string>

#include "support/child_process.h"
#include "support/temp_directory.h"

class NatsServer {
 public:
  enum class Storage { kNone, kJetStream };

  /// Starts a server and waits until it serves. Throws std::runtime_error.
  explicit NatsServer(Storage storage = Storage::kNone);
  ~NatsServer();

  NatsServer(const NatsServer&) = delete;
  NatsServer& operator=(const NatsServer&) = delete;

  /// The port stays the same through Kill() and Start().
  int port() const { return port_; }

  /// "127.0.0.1:port".
  std::string address() const { return "127.0.0.1:" + std::to_string(port_); }

  /// Ends the server with SIGKILL.
  void Kill();

  /// Starts a killed server again, with the data that it had.
  void Start();

  /// Removes the data of a killed server.
  void ForgetData();

  /// Stops the server (SIGSTOP), and lets it go on.
  void Freeze();
  void Thaw();

 private:
  bool Serves() const;

  Storage storage_;
  TempDirectory directory_;
  int port_;
  std::unique_ptr<ChildProcess> process_;
};
