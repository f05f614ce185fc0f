// A real broker on the loopback interface, on a free port of its own.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "support/broker_program.h"
#include "support/child_process.h"
#include "support/mqtt_client.h"
#include "support/temp_directory.h"

class MqttBroker {
 public:
  /// Starts a broker and waits until it serves. Throws std::runtime_error.
  explicit MqttBroker(BrokerProgram program = Mosquitto());
  /// mosquitto, with these further lines of configuration.
  explicit MqttBroker(const std::vector<std::string>& settings) : MqttBroker(Mosquitto(settings)) {}
  ~MqttBroker();

  MqttBroker(const MqttBroker&) = delete;
  MqttBroker& operator=(const MqttBroker&) = delete;

  /// The port stays the same through Kill() and Start().
  int port() const { return port_; }

  const BrokerProgram& program() const { return program_; }

  /// How the tests' client reaches it.
  BrokerAccess access() const;

  /// Ends the broker with SIGKILL; mosquitto forgets everything.
  void Kill();

  /// Ends the broker with SIGTERM, so that it can take leave of its clients.
  void Stop();

  /// Starts a broker again that was ended.
  void Start();

  /// Stops the broker (SIGSTOP), and lets it go on.
  void Freeze();
  void Thaw();

 private:
  TempDirectory directory_;
  const BrokerProgram program_;
  int port_;
  std::unique_ptr<ChildProcess> process_;
};
