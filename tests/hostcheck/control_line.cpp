#include "control_line.h"

#include <cstdlib>

#include <netdb.h>
#include <sys/socket.h>
#include <unistd.h>

#include "json_text.h"
#include "wire.h"

namespace hostcheck {

std::unique_ptr<ControlLine> ControlLine::Connect(std::string* error) {
  const char* variable = getenv(kAddressVariable);
  const std::string address = variable != nullptr ? variable : "";
  const std::size_t colon = address.rfind(':');
  if (colon == std::string::npos) {
    *error =
        std::string(kAddressVariable) + " is to be HOST:PORT: the host is started by hostcheck";
    return nullptr;
  }
  addrinfo hints{};
  hints.ai_socktype = SOCK_STREAM;
  addrinfo* found = nullptr;
  int result = -1;
  int line = -1;
  if (getaddrinfo(address.substr(0, colon).c_str(), address.substr(colon + 1).c_str(), &hints,
                  &found) == 0) {
    line = socket(found->ai_family, SOCK_STREAM | SOCK_CLOEXEC, 0);
    result = connect(line, found->ai_addr, found->ai_addrlen);
    freeaddrinfo(found);
  }
  if (result != 0) {
    if (line >= 0) {
      close(line);
    }
    *error = "hostcheck does not answer at " + address;
    return nullptr;
  }
  return std::unique_ptr<ControlLine>(new ControlLine(line));
}

ControlLine::~ControlLine() { close(socket_); }

void ControlLine::Send(const Json::Value& line) {
  std::string text;
  Json::Json2String(line, text);
  text += '\n';
  std::size_t sent = 0;
  while (sent < text.size()) {
    const ssize_t count = send(socket_, &text[sent], text.size() - sent, MSG_NOSIGNAL);
    if (count <= 0) {
      return;
    }
    sent += static_cast<std::size_t>(count);
  }
}

std::vector<Json::Value> ControlLine::Receive() {
  char bytes[4096];
  for (;;) {
    const ssize_t count = recv(socket_, bytes, sizeof(bytes), MSG_DONTWAIT);
    if (count <= 0) {
      break;
    }
    received_.append(bytes, static_cast<std::size_t>(count));
  }
  std::vector<Json::Value> lines;
  for (std::size_t end = 0; (end = received_.find('\n')) != std::string::npos;) {
    Json::Value line;
    if (Json::String2Json(received_.substr(0, end), line) && line.isObject()) {
      lines.push_back(line);
    }
    received_.erase(0, end + 1);
  }
  return lines;
}

}  // namespace hostcheck
