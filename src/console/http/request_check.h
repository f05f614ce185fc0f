// Who may ask the console for what: only its own page, however many others a browser shows.
#pragma once

#include <string>
#include <utility>

#include "console/http/http_server.h"

namespace console {

/// Random text that only the page that this console has served knows.
std::string MakeToken();

class RequestCheck {
 public:
  /// @param port  of the server.
  /// @param token of the page.
  RequestCheck(int port, std::string token) : port_(port), token_(std::move(token)) {}

  /// Whether the host is this server under a name of the loopback interface, so that no
  /// name of another site that leads here is served. @return empty, or why not.
  std::string Host(const HttpRequest& request) const;

  /// Host(), and that the origin is the page's own: for a WebSocket.
  std::string Origin(const HttpRequest& request) const;

  /// Origin(), and the page's token: for what changes something.
  std::string Change(const HttpRequest& request) const;

 private:
  const int port_;
  const std::string token_;
};

}  // namespace console
