// What a bus client does while its server is away, and when it comes back.
#include <atomic>
#include <future>
#include <optional>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "bus_fixture.h"
#include "platform/nats_dp_client.h"
#include "scoped_environment.h"

namespace {

using testing::Contains;
using testing::Not;

class BusOutage : public BusTest {
 protected:
  /// Publishes until the message is heard: after an outage the device, too, has to
  /// connect again.
  bool HearsEventually(const std::string& topic) {
    return WaitUntil([&] {
      device_.Publish(topic, "again");
      events_->Deliver();
      return !listener_.heard.empty();
    });
  }

  /// Asks until the service answers.
  bool IsAnsweredEventually(const std::string& queue) {
    return WaitUntil([&] { return Request(queue, "text", 1000) == 1; });
  }

  void Restart() {
    server_.Kill();
    server_.Start();
  }
};

TEST_P(BusOutage, EndsARequestThatWaitsForItsAnswer) {
  std::atomic<bool> is_waiting{false};
  device_.Serve("queue", [&](const std::string&) {
    is_waiting = true;
    return Device::kSilence;
  });
  auto result = std::async(std::launch::async, [this] { return Request("queue", "text"); });
  EXPECT_TRUE(WaitUntil([&] { return is_waiting.load(); }));
  server_.Kill();
  EXPECT_EQ(result.get(), 0);  // would take ten minutes otherwise
  EXPECT_EQ(reply_, "untouched");
}

TEST_P(BusOutage, EndsTheConnectionWithWhatIsLeftOfARequest) {
  std::atomic<bool> is_waiting{false};
  device_.Serve("silent", [&](const std::string&) {
    is_waiting = true;
    return Device::kSilence;
  });
  device_.Serve("queue", [](const std::string&) { return "answer"; });
  auto result = std::async(std::launch::async, [this] { return Request("silent", "text"); });
  EXPECT_TRUE(WaitUntil([&] { return is_waiting.load(); }));
  const std::string before = device_.last_requester();
  server_.Kill();
  result.wait();
  server_.Start();
  EXPECT_TRUE(IsAnsweredEventually("queue"));
  EXPECT_NE(device_.last_requester(), before);
}

TEST_P(BusOutage, FailsNewRequestsAtOnce) {
  device_.Serve("queue", [](const std::string&) { return "answer"; });
  server_.Kill();
  // One that is made in the very moment of the loss waits for as long as it may.
  EXPECT_EQ(Request("queue", "text", 1000), 0);
  for (int request = 0; request < 20; ++request) {
    EXPECT_EQ(Request("queue", "text"), 0);
  }
}

TEST_P(BusOutage, EndsByItself) {
  device_.Serve("queue", [](const std::string&) { return "answer"; });
  client_->ListenMessage("topic", 0);
  Restart();
  EXPECT_TRUE(HearsEventually("topic"));
  EXPECT_TRUE(IsAnsweredEventually("queue"));
}

TEST_P(BusOutage, EndsByItselfTimeAndAgain) {
  client_->ListenMessage("topic", 0);
  for (int outage = 0; outage < 3; ++outage) {
    Restart();
    listener_.heard.clear();
    EXPECT_TRUE(HearsEventually("topic"));
  }
}

TEST_P(BusOutage, LetsTopicsBeAddedAndRemoved) {
  client_->ListenMessage("removed", 0);
  server_.Kill();
  EXPECT_TRUE(WaitUntil([this] { return !device_.IsConnected(); }));
  EXPECT_EQ(client_->ListenMessage("added", 0), 0);
  EXPECT_EQ(client_->RemoveListenMessage("removed"), 0);
  server_.Start();
  EXPECT_TRUE(WaitUntil([&] {
    device_.Publish("removed", "again");
    device_.Publish("added", "again");
    events_->Deliver();
    return !listener_.heard.empty();
  }));
  EXPECT_THAT(listener_.heard, Not(Contains("removed again")));
}

TEST_P(BusOutage, SendsNoRequestOnceItIsOverThatWasMadeBefore) {
  std::atomic<int> served{0};
  device_.Serve("queue", [&](const std::string& request) {
    served += request == "during" ? 1 : 0;
    return "answer";
  });
  // Many, for some to make their request before they have noticed the outage.
  std::vector<boost::shared_ptr<tarvex::DpClient>> clients(40);
  for (auto& client : clients) {
    client = NewClient();
  }
  server_.Kill();
  for (const auto& client : clients) {
    EXPECT_EQ(client->SendRequest("queue", 0, "during", 6, &reply_, kLong_ms), 0);
  }
  server_.Start();
  for (const auto& client : clients) {
    EXPECT_TRUE(
        WaitUntil([&] { return client->SendRequest("queue", 0, "after", 5, &reply_, 1000) == 1; }));
  }
  EXPECT_EQ(served, 0);
}

TEST_P(BusOutage, MayLastFromTheBeginning) {
  server_.Kill();
  const auto early = NewClient();
  ASSERT_NE(early, nullptr);
  EXPECT_EQ(early->ListenMessage("topic", 0), 0);
  EXPECT_EQ(early->SendRequest("queue", 0, "x", 1, &reply_, kLong_ms), 0);
  server_.Start();
  EXPECT_TRUE(HearsEventually("topic"));
  EXPECT_EQ(listener_.last_client, early.get());
}

TEST_P(BusOutage, EndsNoClientLate) {
  server_.Kill();
  const auto early = NewClient();
  early->ListenMessage("topic", 0);
  // Both clients end here without a server; the test ends when they have.
}

TEST_P(BusOutage, OfAFrozenServerEndsRequestsAfterTheirTimeout) {
  device_.Serve("queue", [](const std::string&) { return "answer"; });
  server_.Freeze();
  EXPECT_EQ(Request("queue", "text", 50), 0);
  server_.Thaw();
  EXPECT_TRUE(IsAnsweredEventually("queue"));
}

/// A client whose second connection finds a prefix that cannot begin a subject.
class FailedResubscription : public BusOutage {
 protected:
  FailedResubscription() {
    const auto connect = [this] {
      auto link = tarvex::NatsLink::Connect(tarvex::SocketAddress("127.0.0.1", server_.port()),
                                            "adapter", {{}, sockets_, false});
      if (++connections_ == 2) {
        prefix_.emplace("TARVEX_SUBJECT_PREFIX", "not a prefix");
      }
      return link;
    };
    client_ = boost::make_shared<tarvex::NatsDpClient>(
        service_, std::make_shared<tarvex::BusConnection>(connect, connect()));
    client_->SignalDpMessage.connect(&listener_, &Listener::OnDpMessage);
    client_->ListenMessage("topic", 0);
    device_.Serve("silent", [this](const std::string&) {
      is_waiting_ = true;
      return Device::kSilence;
    });
    auto result = std::async(std::launch::async, [this] { return Request("silent", "text"); });
    EXPECT_TRUE(WaitUntil([&] { return is_waiting_.load(); }));
    server_.Kill();
    EXPECT_EQ(result.get(), 0);
    EXPECT_EQ(connections_, 2);
    server_.Start();
  }

  int connections_ = 0;
  std::optional<ScopedEnvironment> prefix_;
  std::atomic<bool> is_waiting_{false};
};

TEST_P(FailedResubscription, IsToldToWhoListensAgain) {
  EXPECT_NE(client_->ListenMessage("topic", 0), 0);
}

TEST_P(FailedResubscription, IsMadeGoodByListeningAgain) {
  prefix_.reset();
  EXPECT_EQ(client_->ListenMessage("topic", 0), 0);
  EXPECT_TRUE(HearsEventually("topic"));
}

INSTANTIATE_FOR_THREADS(BusOutage);
INSTANTIATE_FOR_THREADS(FailedResubscription);

}  // namespace
