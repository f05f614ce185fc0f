#include "support/mqtt_broker.h"

#include <chrono>
#include <csignal>
#include <stdexcept>
#include <utility>

#include "support/loopback_port.h"
#include "support/wait_until.h"

namespace {

// Some brokers take seconds where nothing else runs.
constexpr auto kStart = std::chrono::seconds(90);

}  // namespace

MqttBroker::MqttBroker(BrokerProgram program)
    : program_(std::move(program)), port_(FreeLoopbackPort()) {
  for (int attempts_left = 4;; --attempts_left) {
    try {
      Start();
      return;
    } catch (const std::runtime_error&) {
      if (attempts_left == 0) {
        throw;
      }
      port_ = FreeLoopbackPort();
    }
  }
}

MqttBroker::~MqttBroker() {
  if (process_) {
    Thaw();
    process_->Terminate();
  }
}

void MqttBroker::Start() {
  const BrokerProgram ready = Prepared(program_, directory_.path(), port_);
  process_ = std::make_unique<ChildProcess>(
      ready.command, (directory_.path() / "broker.log").string(), ready.environment);
  const bool serves =
      WaitUntil([this] { return LoopbackPortServes(port_) || !process_->IsRunning(); }, kStart);
  if (!serves || !process_->IsRunning()) {
    throw std::runtime_error(program_.name + " did not start: " + process_->Output());
  }
}

BrokerAccess MqttBroker::access() const {
  BrokerAccess access(port_);
  access.speaks_mqtt_5 = program_.speaks_mqtt_5;
  access.username = program_.username;
  access.password = program_.password;
  return access;
}

void MqttBroker::Kill() { process_->Kill(); }

void MqttBroker::Stop() { process_->Terminate(); }

void MqttBroker::Freeze() { process_->Signal(SIGSTOP); }

void MqttBroker::Thaw() { process_->Signal(SIGCONT); }
