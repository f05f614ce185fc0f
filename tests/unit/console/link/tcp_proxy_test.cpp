#include "console/link/tcp_proxy.h"

#include <gtest/gtest.h>

#include <array>
#include <string>

#include <boost/asio.hpp>

#include "support/wait_until.h"

namespace console {
namespace {

namespace asio = boost::asio;
using asio::ip::tcp;
using std::chrono::milliseconds;

class Proxy : public testing::Test {
 protected:
  Proxy() { Reconnect(); }

  void Reconnect() {
    client_ = tcp::socket(context_);
    client_.connect({asio::ip::address_v4::loopback(), static_cast<unsigned short>(proxy_.port())});
    server_ = acceptor_.accept();
  }

  void Send(const std::string& text) { asio::write(client_, asio::buffer(text)); }

  bool HasArrived(std::size_t bytes) { return server_.available() >= bytes; }

  std::string Received(std::size_t bytes) {
    std::string text(bytes, '\0');
    asio::read(server_, asio::buffer(text));
    return text;
  }

  /// Whether the connection is over, as the client sees it.
  bool IsOver() {
    std::array<char, 1> byte{};
    boost::system::error_code error;
    client_.read_some(asio::buffer(byte), error);
    return static_cast<bool>(error);
  }

  asio::io_context context_;
  tcp::acceptor acceptor_{context_, {asio::ip::address_v4::loopback(), 0}};
  TcpProxy proxy_{acceptor_.local_endpoint().port()};
  tcp::socket client_{context_};
  tcp::socket server_{context_};
};

TEST_F(Proxy, PassesBothWays) {
  Send("to");
  EXPECT_EQ(Received(2), "to");
  asio::write(server_, asio::buffer("fro", 3));
  std::string text(3, '\0');
  asio::read(client_, asio::buffer(text));
  EXPECT_EQ(text, "fro");
  EXPECT_EQ(proxy_.connections(), 1);
}

TEST_F(Proxy, PassesNothingWhileItIsFrozenAndLosesNothing) {
  Send("a");
  ASSERT_EQ(Received(1), "a");
  proxy_.Freeze(true);
  Send("b");
  EXPECT_FALSE(WaitUntil([this] { return HasArrived(1); }, milliseconds(50)));
  proxy_.Freeze(false);
  EXPECT_EQ(Received(1), "b");
}

TEST_F(Proxy, LetsPassLate) {
  proxy_.Limp(milliseconds(100), 0);
  // What is on its way in the same moment need not be late.
  Send("a");
  ASSERT_EQ(Received(1), "a");
  const auto begin = std::chrono::steady_clock::now();
  Send("b");
  EXPECT_EQ(Received(1), "b");
  EXPECT_GE(std::chrono::steady_clock::now() - begin, milliseconds(100));
}

TEST_F(Proxy, LetsPassSoManyBytesASecond) {
  proxy_.Limp(milliseconds(0), 10000);
  Send("a");
  ASSERT_EQ(Received(1), "a");
  const auto begin = std::chrono::steady_clock::now();
  Send(std::string(1000, 'b'));
  Received(1000);
  EXPECT_GE(std::chrono::steady_clock::now() - begin, milliseconds(90));
}

TEST_F(Proxy, ResetsWhatStandsWhenItIsCut) {
  Send("a");
  ASSERT_EQ(Received(1), "a");
  proxy_.Cut();
  EXPECT_TRUE(IsOver());
  Reconnect();
  Send("b");
  EXPECT_EQ(Received(1), "b");
}

TEST_F(Proxy, ClosesNewConnectionsWhileItRefuses) {
  proxy_.RefuseNew(true);
  client_ = tcp::socket(context_);
  client_.connect({asio::ip::address_v4::loopback(), static_cast<unsigned short>(proxy_.port())});
  EXPECT_TRUE(IsOver());
}

}  // namespace
}  // namespace console
