#include "console/http/http_server.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <future>
#include <thread>
#include <vector>

#include <boost/asio.hpp>

#include "support/wait_until.h"

namespace console {
namespace {

namespace asio = boost::asio;
using asio::ip::tcp;
using testing::HasSubstr;
using testing::StartsWith;

/// A server whose page is "page", and raw connections to it.
class Server : public testing::Test {
 protected:
  Server()
      : server_(context_, 0,
                {[](const HttpRequest& request, const HttpServer::Reply& reply) {
                   HttpResponse response;
                   response.body = request.method + " " + request.path + " " + request.body;
                   reply(response);
                 },
                 [](const HttpRequest& request) {
                   return request.path == "/ws" ? std::string() : std::string("not here");
                 },
                 [] { return std::string("first"); }}),
        thread_([this] { context_.run(); }) {}

  ~Server() override {
    context_.stop();
    thread_.join();
  }

  tcp::socket Connect() {
    tcp::socket socket(client_);
    socket.connect({asio::ip::address_v4::loopback(), static_cast<unsigned short>(server_.port())});
    return socket;
  }

  /// What comes until the server ends the connection, or `bytes` of it.
  static std::string Read(tcp::socket& socket, std::size_t bytes = 1 << 20) {
    std::string text;
    boost::system::error_code error;
    asio::read(socket, asio::dynamic_buffer(text, bytes), asio::transfer_at_least(bytes), error);
    return text;
  }

  std::string Ask(const std::string& request) {
    tcp::socket socket = Connect();
    boost::system::error_code error;
    asio::write(socket, asio::buffer(request), error);
    return Read(socket);
  }

  void ExpectThatItLives() {
    EXPECT_THAT(Ask("GET /x HTTP/1.0\r\n\r\n"), StartsWith("HTTP/1.0 200"));
  }

  static std::string UpgradeTo(const std::string& path) {
    return "GET " + path +
           " HTTP/1.1\r\nHost: x\r\nConnection: Upgrade\r\nUpgrade: websocket\r\n"
           "Sec-WebSocket-Key: dGhlIHNhbXBsZSBub25jZQ==\r\nSec-WebSocket-Version: 13\r\n\r\n";
  }

  std::size_t Watchers() {
    std::promise<std::size_t> watchers;
    asio::post(context_, [&] { watchers.set_value(server_.watchers()); });
    return watchers.get_future().get();
  }

  asio::io_context context_;
  asio::io_context client_;
  HttpServer server_;
  std::thread thread_;
};

TEST_F(Server, AnswersARequest) {
  const std::string answer = Ask("POST /a/b?c HTTP/1.0\r\nContent-Length: 2\r\n\r\nhi");
  EXPECT_THAT(answer, StartsWith("HTTP/1.0 200"));
  EXPECT_THAT(answer, HasSubstr("POST /a/b hi"));
}

TEST_F(Server, LetsAPageLoadNothingFromElsewhere) {
  const std::string answer = Ask("GET / HTTP/1.0\r\n\r\n");
  EXPECT_THAT(answer, HasSubstr("Content-Security-Policy: default-src 'none'; script-src 'self'"));
  EXPECT_THAT(answer, HasSubstr("X-Content-Type-Options: nosniff"));
}

TEST_F(Server, RefusesAHeaderOfTenMegabytes) {
  EXPECT_THAT(Ask("GET / HTTP/1.1\r\nX: " + std::string(10 << 20, 'x') + "\r\n\r\n"),
              testing::AnyOf(StartsWith("HTTP/1.1 431"), ""));
  EXPECT_THAT(Ask("GET / HTTP/1.1\r\nX: " + std::string(20 << 10, 'x') + "\r\n\r\n"),
              StartsWith("HTTP/1.1 431"));
  ExpectThatItLives();
}

TEST_F(Server, RefusesABodyThatIsTooLarge) {
  EXPECT_THAT(Ask("POST / HTTP/1.1\r\nContent-Length: 300000\r\n\r\n"), StartsWith("HTTP/1.1 413"));
  ExpectThatItLives();
}

TEST_F(Server, RefusesWhatIsNotHttp) {
  EXPECT_THAT(Ask("\x16\x03\x01 hello\r\n\r\n"), StartsWith("HTTP/1.1 400"));
  ExpectThatItLives();
}

TEST_F(Server, OpensAWebSocketWhereThereIsOne) {
  tcp::socket socket = Connect();
  asio::write(socket, asio::buffer(UpgradeTo("/ws")));
  EXPECT_THAT(Read(socket, 100), StartsWith("HTTP/1.1 101"));
  EXPECT_TRUE(WaitUntil([this] { return Watchers() == 1; }));
  socket.close();
  EXPECT_TRUE(WaitUntil([this] { return Watchers() == 0; }));
  EXPECT_THAT(Ask(UpgradeTo("/other")), StartsWith("HTTP/1.1 403"));
}

TEST_F(Server, DropsAWebSocketThatNeverReads) {
  tcp::socket socket = Connect();
  asio::write(socket, asio::buffer(UpgradeTo("/ws")));
  ASSERT_TRUE(WaitUntil([this] { return Watchers() == 1; }));
  const std::string text(1 << 20, 'x');
  const bool is_dropped = WaitUntil([&] {
    asio::post(context_, [&] { server_.SendToAll(text); });
    return Watchers() == 0;
  });
  EXPECT_TRUE(is_dropped);
  ExpectThatItLives();
}

TEST_F(Server, KeepsAnAccountOfItsConnections) {
  std::vector<tcp::socket> sockets;
  for (int i = 0; i < 100; ++i) {
    sockets.push_back(Connect());
  }
  sockets.clear();
  EXPECT_TRUE(
      WaitUntil([this] { return Ask("GET /x HTTP/1.0\r\n\r\n").rfind("HTTP/1.0 200", 0) == 0; }));
}

}  // namespace
}  // namespace console
