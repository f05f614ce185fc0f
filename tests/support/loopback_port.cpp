#include "support/loopback_port.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <random>

sockaddr_in LoopbackAddress(int port) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(static_cast<in_port_t>(port));
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  return address;
}

namespace {

/// Takes the UDP port of the same number until the program ends, which tells tests that run at
/// the same time that the port is not theirs. The socket stays open.
bool Reserve(const sockaddr_in& address) {
  const int socket_fd = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  const bool is_ours =
      bind(socket_fd, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) == 0;
  if (!is_ours) {
    close(socket_fd);
  }
  return is_ours;
}

}  // namespace

int FreeLoopbackPort() {
  std::random_device random;
  std::uniform_int_distribution<int> below_outgoing_ports(10000, 32000);
  for (int attempts_left = 100; attempts_left > 0; --attempts_left) {
    const int port = below_outgoing_ports(random);
    const int socket_fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const sockaddr_in address = LoopbackAddress(port);
    const bool is_free =
        bind(socket_fd, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) == 0;
    close(socket_fd);
    if (is_free && Reserve(address)) {
      return port;
    }
  }
  return 0;
}

bool LoopbackPortServes(int port) {
  const int socket_fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  const sockaddr_in address = LoopbackAddress(port);
  const bool ok =
      connect(socket_fd, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) == 0;
  close(socket_fd);
  return ok;
}
