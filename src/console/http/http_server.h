// The console's HTTP and WebSocket server on the loopback interface.
#pragma once

#include <cstddef>
#include <functional>
#include <memory>
#include <string>

#include <json/value.h>
#include <boost/asio/io_context.hpp>

namespace console {

struct HttpRequest {
  std::string method;
  std::string path;  ///< without the query, as it was sent
  std::string host;
  std::string origin;  ///< empty without one
  std::string token;   ///< of "X-Console-Token"
  std::string body;
};

struct HttpResponse {
  int status = 200;
  std::string type = "application/json";
  std::string body;
  bool may_be_kept = false;  ///< by the browser: it never changes
};

HttpResponse JsonResponse(const Json::Value& value);

/// {"error": text}
HttpResponse ErrorResponse(int status, const std::string& text);

/// Serves on 127.0.0.1. Everything happens on the context's thread. Bounds: 64
/// connections, 16 KiB of header, 256 KiB of body, 30 seconds for a request; a WebSocket
/// for which 16 MiB wait is dropped. What is beyond them gets an error or is closed.
class HttpServer {
 public:
  using Reply = std::function<void(HttpResponse response)>;

  struct Handlers {
    /// @param reply to be called once, at once or later.
    std::function<void(const HttpRequest& request, Reply reply)> on_request;
    /// Whether a WebSocket may be opened. @return empty, or why not.
    std::function<std::string(const HttpRequest& request)> on_upgrade;
    /// The first text for a WebSocket that has been opened.
    std::function<std::string()> first_text;
  };

  /// @param port 0: a free one. Throws boost::system::system_error when it is in use.
  HttpServer(boost::asio::io_context& context, int port, Handlers handlers);
  ~HttpServer();
  HttpServer(const HttpServer&) = delete;
  HttpServer& operator=(const HttpServer&) = delete;

  int port() const;

  /// Sends a text to every WebSocket.
  void SendToAll(const std::string& text);

  /// WebSockets that are open.
  std::size_t watchers() const;

 private:
  class Listener;
  std::shared_ptr<Listener> listener_;
};

}  // namespace console
