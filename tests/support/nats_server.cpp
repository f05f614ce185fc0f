#include "support/nats_server.h"

#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <filesystem>
#include <stdexcept>
#include <vector>

#include "support/loopback_port.h"
#include "support/wait_until.h"

NatsServer::NatsServer(Storage storage) : storage_(storage), port_(FreeLoopbackPort()) {
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

NatsServer::~NatsServer() = default;

void NatsServer::Start() {
  std::vector<std::string> command = {"nats-server", "-a", "127.0.0.1", "-p",
                                      std::to_string(port_)};
  if (storage_ == Storage::kJetStream) {
    command.insert(command.end(), {"-js", "-sd", (directory_.path() / "data").string()});
  }
  process_ = std::make_unique<ChildProcess>(command, (directory_.path() / "log").string());
  const bool settled = WaitUntil([this] { return Serves() || !process_->IsRunning(); });
  if (!settled || !process_->IsRunning()) {
    throw std::runtime_error("nats-server does not serve:\n" + process_->Output());
  }
}

void NatsServer::Kill() { process_->Kill(); }

void NatsServer::ForgetData() { std::filesystem::remove_all(directory_.path() / "data"); }

void NatsServer::Freeze() { process_->Freeze(); }

void NatsServer::Thaw() { process_->Thaw(); }

bool NatsServer::Serves() const {
  const int socket_fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  const sockaddr_in address = LoopbackAddress(port_);
  bool greeted = false;
  if (connect(socket_fd, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) == 0) {
    // The server sends first: "INFO {...}".
    pollfd readable{socket_fd, POLLIN, 0};
    char first = 0;
    greeted = poll(&readable, 1, 1000) == 1 && recv(socket_fd, &first, 1, 0) == 1 && first == 'I';
  }
  close(socket_fd);
  return greeted;
}
