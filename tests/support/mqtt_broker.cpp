#include "support/mqtt_broker.h"

#include <csignal>
#include <fstream>
#include <stdexcept>

#include "support/loopback_port.h"
#include "support/wait_until.h"

MqttBroker::MqttBroker(const std::vector<std::string>& settings)
    : settings_(settings), port_(FreeLoopbackPort()) {
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
  const std::string configuration = (directory_.path() / "mosquitto.conf").string();
  std::ofstream file(configuration);
  file << "listener " << port_ << " 127.0.0.1\npersistence false\nset_tcp_nodelay true\n"
       << "max_queued_messages 0\nmax_inflight_messages 1000\n";
  for (const std::string& line : settings_) {
    file << line << "\n";
  }
  file.close();
  process_ =
      std::make_unique<ChildProcess>(std::vector<std::string>{"mosquitto", "-c", configuration},
                                     (directory_.path() / "mosquitto.log").string());
  const bool serves =
      WaitUntil([this] { return LoopbackPortServes(port_) || !process_->IsRunning(); });
  if (!serves || !process_->IsRunning()) {
    throw std::runtime_error("mosquitto did not start: " + process_->Output());
  }
}

void MqttBroker::Kill() { process_->Kill(); }

void MqttBroker::Freeze() { process_->Signal(SIGSTOP); }

void MqttBroker::Thaw() { process_->Signal(SIGCONT); }
