#include "platform/nats_link.h"

#include <array>
#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>

#include "scoped_environment.h"
#include "support/nats_server.h"
#include "support/wait_until.h"

namespace {

using tarvex::NatsLink;
using tarvex::SocketAddress;
using testing::HasSubstr;
using testing::IsEmpty;

/// Closes every connection that it accepts.
class ClosingServer {
 public:
  explicit ClosingServer(int port)
      : acceptor_(context_,
                  {boost::asio::ip::address_v4::loopback(), static_cast<std::uint16_t>(port)}) {
    Close();
    thread_ = std::thread([this] { context_.run(); });
  }
  ~ClosingServer() {
    context_.stop();
    thread_.join();
  }
  ClosingServer(const ClosingServer&) = delete;
  ClosingServer& operator=(const ClosingServer&) = delete;

  int accepted() const { return accepted_; }

 private:
  void Close() {
    acceptor_.async_accept(
        [this](const boost::system::error_code&, const boost::asio::ip::tcp::socket&) {
          ++accepted_;
          Close();
        });
  }

  boost::asio::io_context context_;
  boost::asio::ip::tcp::acceptor acceptor_;
  std::atomic<int> accepted_{0};
  std::thread thread_;
};

class NatsLinkTest : public testing::Test {
 protected:
  std::shared_ptr<NatsLink> Connected() {
    return NatsLink::Connect(SocketAddress("127.0.0.1", server_.port()), "client",
                             [this](bool connected) {
                               const std::lock_guard<std::mutex> lock(mutex_);
                               states_.push_back(connected);
                             });
  }

  std::vector<bool> States() {
    const std::lock_guard<std::mutex> lock(mutex_);
    return states_;
  }

  bool Comes(const std::vector<bool>& states) {
    return WaitUntil([&] { return States() == states; });
  }

  NatsServer server_;
  std::mutex mutex_;
  std::vector<bool> states_;
};

TEST_F(NatsLinkTest, StandsOnReturnWhereTheServerIsThere) {
  const auto link = Connected();
  EXPECT_TRUE(link->IsConnected());
  EXPECT_THAT(States(), IsEmpty());
}

TEST_F(NatsLinkTest, AnnouncesItsLossAndItsReturn) {
  const auto link = Connected();
  server_.Kill();
  EXPECT_TRUE(Comes({false}));
  EXPECT_FALSE(link->IsConnected());
  server_.Start();
  EXPECT_TRUE(Comes({false, true}));
  EXPECT_TRUE(link->IsConnected());
}

TEST_F(NatsLinkTest, WaitsForAServerThatComesLater) {
  server_.Kill();
  const auto link = Connected();
  ASSERT_NE(link, nullptr);
  EXPECT_FALSE(link->IsConnected());
  server_.Start();
  EXPECT_TRUE(Comes({true}));
}

TEST_F(NatsLinkTest, WaitsForAServerThatHangsUpAtFirst) {
  server_.Kill();
  auto closing = std::make_unique<ClosingServer>(server_.port());
  const auto link = Connected();
  ASSERT_NE(link, nullptr);
  EXPECT_TRUE(WaitUntil([&] { return closing->accepted() > 0; }));
  EXPECT_FALSE(link->IsConnected());
  closing.reset();
  server_.Start();
  EXPECT_TRUE(Comes({true}));
}

TEST_F(NatsLinkTest, NoticesAServerThatIsFrozen) {
  const auto link = Connected();
  server_.Freeze();
  EXPECT_TRUE(WaitUntil([&] { return !link->IsConnected(); }));
  server_.Thaw();
  EXPECT_TRUE(WaitUntil([&] { return link->IsConnected(); }));
}

TEST_F(NatsLinkTest, KeepsOneMessageForLaterAtTheMostWhileThereIsNoConnection) {
  const auto link = Connected();
  server_.Kill();
  EXPECT_TRUE(Comes({false}));
  natsConnection_Publish(link->get(), "topic", "x", 1);
  EXPECT_NE(natsConnection_Publish(link->get(), "topic", "x", 1), NATS_OK);
}

TEST_F(NatsLinkTest, AnnouncesNothingAfterItsEnd) {
  Connected().reset();
  server_.Kill();
  EXPECT_THAT(States(), IsEmpty());
}

TEST_F(NatsLinkTest, GoesWhereTheEnvironmentSends) {
  const ScopedEnvironment bus("TARVEX_BUS_ADDRESS", server_.address());
  const auto link = NatsLink::Connect(SocketAddress("127.0.0.1", 6101), "client");
  EXPECT_TRUE(link->IsConnected());
}

TEST_F(NatsLinkTest, GoesToAnotherServerOfSeveralWhenItsOwnIsGone) {
  NatsServer other;
  const ScopedEnvironment bus("TARVEX_BUS_ADDRESS", server_.address() + "," + other.address());
  const auto link = NatsLink::Connect(tarvex::BusAddress(), "client", [this](bool connected) {
    const std::lock_guard<std::mutex> lock(mutex_);
    states_.push_back(connected);
  });
  ASSERT_TRUE(link->IsConnected());
  std::array<char, 64> url{};
  natsConnection_GetConnectedUrl(link->get(), url.data(), url.size());
  const bool is_at_other = std::string(url.data()).find(other.address()) != std::string::npos;
  (is_at_other ? other : server_).Kill();
  EXPECT_TRUE(Comes({false, true}));
  EXPECT_TRUE(link->IsConnected());
}

TEST(NatsLinkToIpv6, NamesItsServerInBrackets) {
  for (const char* host : {"::1", "[::1]"}) {
    testing::internal::CaptureStderr();
    EXPECT_NE(NatsLink::Connect(SocketAddress(host, 1), "client"), nullptr);
    EXPECT_THAT(testing::internal::GetCapturedStderr(), HasSubstr(" client at [::1]:1: not there"));
  }
}

TEST(NatsLinkRefusal, IsOneClearLineForAMalformedAddress) {
  const ScopedEnvironment kv("TARVEX_KV_ADDRESS", "nonsense");
  testing::internal::CaptureStderr();
  EXPECT_EQ(NatsLink::Connect(SocketAddress("127.0.0.1", 6102), "client"), nullptr);
  const std::string log = testing::internal::GetCapturedStderr();
  EXPECT_THAT(log, HasSubstr("TARVEX_KV_ADDRESS is not \"host:port\": nonsense\n"));
  EXPECT_EQ(log.find('\n'), log.size() - 1);
}

TEST(NatsLinkRefusal, IsOneClearLineForAMalformedPrefix) {
  const ScopedEnvironment prefix("TARVEX_SUBJECT_PREFIX", "a b");
  testing::internal::CaptureStderr();
  EXPECT_EQ(NatsLink::Connect(SocketAddress("127.0.0.1", 6102), "client"), nullptr);
  const std::string log = testing::internal::GetCapturedStderr();
  EXPECT_EQ(log.find('\n'), log.size() - 1);
}

}  // namespace
