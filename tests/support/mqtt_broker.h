// A real mosquitto on the loopback interface, on a free port of its own.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "support/child_process.h"
#include "support/temp_directory.h"

class MqttBroker {
 public:
  /// Starts a broker and waits until it serves. Throws std::runtime_error.
  /// @param settings further lines of its configuration; without any it lets everybody in.
  explicit MqttBroker(const std::vector<std::string>& settings = {"allow_anonymous true"});
  ~MqttBroker();

  MqttBroker(const MqttBroker&) = delete;
  MqttBroker& operator=(const MqttBroker&) = delete;

  /// The port stays the same through Kill() and Start().
  int port() const { return port_; }

  /// Ends the broker with SIGKILL; it forgets everything.
  void Kill();

  /// Starts a killed broker again.
  void Start();

  /// Stops the broker (SIGSTOP), and lets it go on.
  void Freeze();
  void Thaw();

 private:
  TempDirectory directory_;
  std::vector<std::string> settings_;
  int port_;
  std::unique_ptr<ChildProcess> process_;
};
