#include "console/http/http_server.h"

#include <algorithm>
#include <chrono>
#include <deque>
#include <optional>
#include <set>
#include <utility>

#include <boost/asio/ip/tcp.hpp>
#include <boost/beast/core.hpp>
#include <boost/beast/http.hpp>
#include <boost/beast/websocket.hpp>

#include "json_text.h"
#include "platform/log.h"

namespace console {
namespace {

namespace asio = boost::asio;
namespace beast = boost::beast;
namespace http = boost::beast::http;
namespace websocket = boost::beast::websocket;
using boost::asio::ip::tcp;

constexpr std::size_t kMaxConnections = 64;
constexpr std::size_t kMaxHeader_bytes = std::size_t{16} << 10;
constexpr std::size_t kMaxBody_bytes = std::size_t{256} << 10;
constexpr std::size_t kMaxWaiting_bytes = std::size_t{16} << 20;
constexpr std::size_t kMaxFromPage_bytes = std::size_t{4} << 10;
constexpr std::chrono::seconds kPatience{30};

// Only the page's own files, nothing inline, no other host; nobody may frame it.
constexpr char kContentSecurityPolicy[] =
    "default-src 'none'; script-src 'self'; style-src 'self'; img-src 'self' data:; "
    "connect-src 'self'; base-uri 'none'; form-action 'none'; frame-ancestors 'none'";

HttpRequest Plain(const http::request<http::string_body>& request) {
  const auto text = [](beast::string_view view) { return std::string(view.data(), view.size()); };
  HttpRequest plain;
  plain.method = text(request.method_string());
  plain.path = text(request.target().substr(0, request.target().find('?')));
  plain.host = text(request[http::field::host]);
  plain.origin = text(request[http::field::origin]);
  plain.token = text(request["X-Console-Token"]);
  plain.body = request.body();
  return plain;
}

http::response<http::string_body> Dressed(const HttpResponse& response, unsigned version) {
  http::response<http::string_body> dressed(static_cast<http::status>(response.status), version);
  dressed.set(http::field::content_type, response.type);
  dressed.set("Content-Security-Policy", kContentSecurityPolicy);
  dressed.set("X-Content-Type-Options", "nosniff");
  dressed.set("Referrer-Policy", "no-referrer");
  dressed.set("Cross-Origin-Resource-Policy", "same-origin");
  dressed.set(http::field::cache_control,
              response.may_be_kept ? "private, max-age=86400, immutable" : "no-store");
  dressed.body() = response.body;
  return dressed;
}

}  // namespace

HttpResponse JsonResponse(const Json::Value& value) {
  HttpResponse response;
  Json::Json2String(value, response.body);
  return response;
}

HttpResponse ErrorResponse(int status, const std::string& text) {
  Json::Value error(Json::objectValue);
  error["error"] = text;
  HttpResponse response = JsonResponse(error);
  response.status = status;
  return response;
}

namespace {

/// A WebSocket: texts go out, what comes in is read and ignored.
class Watcher : public std::enable_shared_from_this<Watcher> {
 public:
  Watcher(beast::tcp_stream stream, std::function<void(Watcher*)> on_end)
      : socket_(std::move(stream)), on_end_(std::move(on_end)) {}

  ~Watcher() { on_end_(this); }

  void Open(const http::request<http::string_body>& request,
            const std::function<std::string()>& first_text,
            const std::function<void(Watcher*)>& on_open) {
    beast::get_lowest_layer(socket_).expires_never();
    auto timeout = websocket::stream_base::timeout::suggested(beast::role_type::server);
    timeout.keep_alive_pings = true;
    socket_.set_option(timeout);
    socket_.read_message_max(kMaxFromPage_bytes);
    socket_.async_accept(request,
                         [self = shared_from_this(), first_text, on_open](beast::error_code error) {
                           if (!error) {
                             on_open(self.get());
                             self->Send(std::make_shared<const std::string>(first_text()));
                             self->Read();
                           }
                         });
  }

  void Send(const std::shared_ptr<const std::string>& text) {
    if (is_over_) {
      return;
    }
    waiting_bytes_ += text->size();
    waiting_.push_back(text);
    if (waiting_bytes_ > kMaxWaiting_bytes) {
      SYS_LOG(kLogWarning, "a page that does not read is dropped");
      End();
    } else if (waiting_.size() == 1) {
      Write();
    }
  }

  void End() {
    is_over_ = true;
    beast::error_code ignored;
    beast::get_lowest_layer(socket_).socket().close(ignored);
  }

 private:
  void Read() {
    socket_.async_read(incoming_, [self = shared_from_this()](beast::error_code error, size_t) {
      if (error) {
        self->End();
        return;
      }
      self->incoming_.consume(self->incoming_.size());
      self->Read();
    });
  }

  void Write() {
    socket_.text(true);
    socket_.async_write(asio::buffer(*waiting_.front()),
                        [self = shared_from_this()](beast::error_code error, size_t) {
                          if (error) {
                            self->End();
                            return;
                          }
                          self->waiting_bytes_ -= self->waiting_.front()->size();
                          self->waiting_.pop_front();
                          if (!self->waiting_.empty()) {
                            self->Write();
                          }
                        });
  }

  websocket::stream<beast::tcp_stream> socket_;
  const std::function<void(Watcher*)> on_end_;
  beast::flat_buffer incoming_;
  std::deque<std::shared_ptr<const std::string>> waiting_;
  std::size_t waiting_bytes_ = 0;
  bool is_over_ = false;
};

}  // namespace

/// Accepts, and keeps account of what is open.
class HttpServer::Listener : public std::enable_shared_from_this<HttpServer::Listener> {
 public:
  Listener(asio::io_context& context, int port, Handlers handlers)
      : handlers_(std::move(handlers)),
        acceptor_(context, {asio::ip::address_v4::loopback(), static_cast<unsigned short>(port)}) {}

  int port() const { return acceptor_.local_endpoint().port(); }

  std::size_t watchers() const { return watchers_.size(); }

  void Accept() {
    acceptor_.async_accept(
        [self = shared_from_this()](beast::error_code error, tcp::socket accepted) {
          if (self->is_over_) {
            return;
          }
          if (!error && self->sessions_ + self->watchers_.size() < kMaxConnections) {
            std::make_shared<Session>(self, std::move(accepted))->Read();
          }
          self->Accept();
        });
  }

  void SendToAll(const std::string& text) {
    const auto shared = std::make_shared<const std::string>(text);
    for (Watcher* watcher : std::set<Watcher*>(watchers_)) {
      watcher->shared_from_this()->Send(shared);
    }
  }

  void End() {
    is_over_ = true;
    beast::error_code ignored;
    acceptor_.close(ignored);
    for (Watcher* watcher : std::set<Watcher*>(watchers_)) {
      watcher->shared_from_this()->End();
    }
  }

 private:
  /// A connection until it ends or becomes a WebSocket.
  class Session : public std::enable_shared_from_this<Session> {
   public:
    Session(std::shared_ptr<Listener> listener, tcp::socket accepted)
        : listener_(std::move(listener)), stream_(std::move(accepted)) {
      ++listener_->sessions_;
    }
    ~Session() { --listener_->sessions_; }
    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;

    void Read() {
      parser_.emplace();
      parser_->header_limit(kMaxHeader_bytes);
      parser_->body_limit(kMaxBody_bytes);
      stream_.expires_after(kPatience);
      http::async_read(
          stream_, buffer_, *parser_,
          [self = shared_from_this()](beast::error_code error, size_t) { self->OnRead(error); });
    }

   private:
    void OnRead(beast::error_code error) {
      if (error == http::error::header_limit || error == http::error::buffer_overflow) {
        Write(ErrorResponse(431, "the header is too large"), 11, false);
      } else if (error == http::error::body_limit) {
        Write(ErrorResponse(413, "the body is too large"), 11, false);
      } else if (error == http::error::end_of_stream || error == beast::error::timeout) {
        Close();
      } else if (error) {
        Write(ErrorResponse(400, "not HTTP: " + error.message()), 11, false);
      } else {
        Handle(parser_->release());
      }
    }

    void Handle(const http::request<http::string_body>& request) {
      const HttpRequest plain = Plain(request);
      const bool keep_alive = request.keep_alive();
      const unsigned version = request.version();
      if (websocket::is_upgrade(request)) {
        const std::string refusal = listener_->handlers_.on_upgrade(plain);
        if (refusal.empty()) {
          Upgrade(request);
        } else {
          Write(ErrorResponse(403, refusal), version, false);
        }
        return;
      }
      stream_.expires_after(kPatience);
      listener_->handlers_.on_request(
          plain, [self = shared_from_this(), version, keep_alive](const HttpResponse& response) {
            self->Write(response, version, keep_alive);
          });
    }

    void Upgrade(const http::request<http::string_body>& request) {
      const std::shared_ptr<Listener> listener = listener_;
      std::make_shared<Watcher>(std::move(stream_), [listener](Watcher* ended) {
        listener->watchers_.erase(ended);
      })->Open(request, listener->handlers_.first_text, [listener](Watcher* opened) {
        listener->watchers_.insert(opened);
      });
    }

    void Write(const HttpResponse& response, unsigned version, bool keep_alive) {
      response_ = Dressed(response, version);
      response_.keep_alive(keep_alive);
      response_.prepare_payload();
      stream_.expires_after(kPatience);
      http::async_write(stream_, response_,
                        [self = shared_from_this(), keep_alive](beast::error_code error, size_t) {
                          if (error || !keep_alive) {
                            self->Close();
                          } else {
                            self->Read();
                          }
                        });
    }

    void Close() {
      beast::error_code ignored;
      stream_.socket().shutdown(tcp::socket::shutdown_send, ignored);
    }

    const std::shared_ptr<Listener> listener_;
    beast::tcp_stream stream_;
    beast::flat_buffer buffer_{kMaxHeader_bytes + kMaxBody_bytes};
    std::optional<http::request_parser<http::string_body>> parser_;
    http::response<http::string_body> response_;
  };

  const Handlers handlers_;
  tcp::acceptor acceptor_;
  std::set<Watcher*> watchers_;
  std::size_t sessions_ = 0;
  bool is_over_ = false;
};

HttpServer::HttpServer(asio::io_context& context, int port, Handlers handlers)
    : listener_(std::make_shared<Listener>(context, port, std::move(handlers))) {
  listener_->Accept();
}

HttpServer::~HttpServer() { listener_->End(); }

int HttpServer::port() const { return listener_->port(); }

void HttpServer::SendToAll(const std::string& text) { listener_->SendToAll(text); }

std::size_t HttpServer::watchers() const { return listener_->watchers(); }

}  // namespace console
