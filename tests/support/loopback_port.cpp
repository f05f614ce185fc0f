#include "support/loopback_port.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

sockaddr_in LoopbackAddress(int port) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(static_cast<in_port_t>(port));
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  return address;
}

int FreeLoopbackPort() {
  const int socket_fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_in address = LoopbackAddress(0);
  socklen_t length = sizeof(address);
  const bool ok = bind(socket_fd, reinterpret_cast<sockaddr*>(&address), length) == 0 &&
                  getsockname(socket_fd, reinterpret_cast<sockaddr*>(&address), &length) == 0;
  close(socket_fd);
  return ok ? ntohs(address.sin_port) : 0;
}

bool LoopbackPortServes(int port) {
  const int socket_fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  const sockaddr_in address = LoopbackAddress(port);
  const bool ok =
      connect(socket_fd, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) == 0;
  close(socket_fd);
  return ok;
}
