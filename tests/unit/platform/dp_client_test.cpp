#include "tarvex/dp_client.h"

#include <atomic>
#include <chrono>
#include <string>
#include <thread>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "bus_fixture.h"
#include "scoped_environment.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

using BusRequest = BusTest;
using BusTopic = BusTest;

TEST_P(BusRequest, IsAnsweredByTheServiceOfItsQueue) {
  device_.Serve("SS_BUS_REQUEST", [](const std::string& request) { return "got " + request; });
  EXPECT_EQ(Request("SS_BUS_REQUEST", "{\"type\":\"x\"}"), 1);
  EXPECT_EQ(reply_, "got {\"type\":\"x\"}");
}

TEST_P(BusRequest, CarriesAnyBytesBothWays) {
  const std::string bytes("\0\r\n\xFF\0 end", 9);
  device_.Serve("EVS_RS485_WRITE", [](const std::string& request) { return request + request; });
  EXPECT_EQ(Request("EVS_RS485_WRITE", bytes), 1);
  EXPECT_EQ(reply_, bytes + bytes);
}

TEST_P(BusRequest, MayBeEmptyAndSoMayItsAnswer) {
  std::string seen = "nothing yet";
  device_.Serve("queue", [&](const std::string& request) {
    seen = request;
    return "";
  });
  EXPECT_EQ(client_->SendRequest("queue", 0, nullptr, 0, &reply_, kLong_ms), 1);
  EXPECT_EQ(seen, "");
  EXPECT_EQ(reply_, "");
}

TEST_P(BusRequest, NeedsNoPlaceForItsAnswer) {
  device_.Serve("queue", [](const std::string&) { return "answer"; });
  EXPECT_EQ(client_->SendRequest("queue", 0, "x", 1, nullptr, kLong_ms), 1);
}

TEST_P(BusRequest, FailsAtOnceWhereNobodyServesTheQueue) {
  EXPECT_EQ(Request("NOBODY", "text"), 0);  // would take ten minutes otherwise
  EXPECT_EQ(reply_, "untouched");
}

TEST_P(BusRequest, FailsAfterItsTimeoutWhereTheServiceIsSilent) {
  device_.Serve("queue", [](const std::string&) { return Device::kSilence; });
  const auto sent = std::chrono::steady_clock::now();
  EXPECT_EQ(Request("queue", "text", 50), 0);
  // Nearly: the library counts whole milliseconds.
  EXPECT_GE(std::chrono::steady_clock::now() - sent, std::chrono::milliseconds(48));
  EXPECT_EQ(reply_, "untouched");
}

TEST_P(BusRequest, FailsWithoutATimeToWait) {
  device_.Serve("queue", [](const std::string&) { return "answer"; });
  EXPECT_EQ(Request("queue", "text", 0), 0);
  EXPECT_EQ(Request("queue", "text", -1), 0);
}

TEST_P(BusRequest, FailsWhereTheNameIsNoQueue) {
  for (const char* name : {"", "a b", "*", ">", "a..b", "a\n"}) {
    EXPECT_EQ(Request(name, "text"), 0) << name;
  }
}

TEST_P(BusRequest, FailsWhereTheServerTakesNoMessageOfThatLength) {
  device_.Serve("queue", [](const std::string&) { return "answer"; });
  EXPECT_EQ(Request("queue", std::string(std::size_t{4} << 20U, 'x')), 0);
  EXPECT_EQ(Request("queue", "text"), 1);
}

TEST_P(BusRequest, IsNotConfusedByALateAnswerToTheOneBefore) {
  std::atomic<bool> released{false};
  std::atomic<bool> answered{false};
  device_.Serve("late", [&](const std::string&) {
    WaitUntil([&] { return released.load(); });
    answered = true;
    return "late";
  });
  device_.Serve("prompt", [](const std::string&) { return "prompt"; });
  EXPECT_EQ(Request("late", "text", 20), 0);
  released = true;
  EXPECT_TRUE(WaitUntil([&] { return answered.load(); }));
  EXPECT_EQ(Request("prompt", "text"), 1);
  EXPECT_EQ(reply_, "prompt");
}

TEST_P(BusTopic, ArrivesOnTheSignalWithItsName) {
  EXPECT_EQ(client_->ListenMessage("SYS_SRV_IP_CHANGED", 0), 0);
  device_.Publish("SYS_SRV_IP_CHANGED", "{\"ip\":\"10.0.0.1\"}");
  EXPECT_TRUE(HearsInAll(1));
  EXPECT_THAT(listener_.heard, ElementsAre("SYS_SRV_IP_CHANGED {\"ip\":\"10.0.0.1\"}"));
  EXPECT_EQ(listener_.last_client, client_.get());
}

TEST_P(BusTopic, WaitsForTheEventService) {
  client_->ListenMessage("topic", 0);
  device_.Publish("topic", "1");
  EXPECT_TRUE(HaveArrived(1));
  EXPECT_THAT(listener_.heard, IsEmpty());
}

TEST_P(BusTopic, CarriesAnyBytes) {
  const std::string record(552, '\0');
  client_->ListenMessage("BUS_SRV_IVS_RESULT", 0);
  device_.Publish("BUS_SRV_IVS_RESULT", record);
  device_.Publish("BUS_SRV_IVS_RESULT", "");
  EXPECT_TRUE(HearsInAll(2));
  EXPECT_THAT(listener_.heard, ElementsAre("BUS_SRV_IVS_RESULT " + record, "BUS_SRV_IVS_RESULT "));
}

TEST_P(BusTopic, KeepsItsOrder) {
  client_->ListenMessage("topic", 0);
  std::vector<std::string> expected;
  for (int number = 0; number < 200; ++number) {
    device_.Publish("topic", std::to_string(number));
    expected.push_back("topic " + std::to_string(number));
  }
  EXPECT_TRUE(HearsInAll(200));
  EXPECT_EQ(listener_.heard, expected);
}

TEST_P(BusTopic, ArrivesOnceWhenListenedToTwice) {
  EXPECT_EQ(client_->ListenMessage("topic", 0), 0);
  EXPECT_EQ(client_->ListenMessage("topic", 0), 0);
  device_.Publish("topic", "1");
  device_.Publish("topic", "2");
  EXPECT_TRUE(HearsInAll(2));
  EXPECT_THAT(listener_.heard, ElementsAre("topic 1", "topic 2"));
}

TEST_P(BusTopic, IsNotHeardUnlessListenedTo) {
  client_->ListenMessage("mine", 0);
  device_.Publish("other", "1");
  device_.Publish("mine", "2");
  EXPECT_TRUE(HearsInAll(1));
  EXPECT_THAT(listener_.heard, ElementsAre("mine 2"));
}

TEST_P(BusTopic, IsRefusedWhereTheNameIsNone) {
  for (const char* name : {"", "a b", "*", "a.>", "."}) {
    EXPECT_NE(client_->ListenMessage(name, 0), 0) << name;
  }
}

TEST_P(BusTopic, StaysSilentAfterItsRemovalEvenWithMessagesUnderWay) {
  client_->ListenMessage("topic", 0);
  client_->ListenMessage("last", 0);
  device_.Publish("topic", "1");
  EXPECT_TRUE(HaveArrived(1));
  EXPECT_EQ(client_->RemoveListenMessage("topic"), 0);
  device_.Publish("topic", "2");
  device_.Publish("last", "3");
  EXPECT_TRUE(HearsInAll(1));
  EXPECT_THAT(listener_.heard, ElementsAre("last 3"));
}

TEST_P(BusTopic, MayBeListenedToAgainAfterItsRemoval) {
  client_->ListenMessage("topic", 0);
  device_.Publish("topic", "before");
  EXPECT_TRUE(HaveArrived(1));
  client_->RemoveListenMessage("topic");
  client_->ListenMessage("topic", 0);
  device_.Publish("topic", "after");
  EXPECT_TRUE(HearsInAll(1));
  EXPECT_THAT(listener_.heard, ElementsAre("topic after"));
}

TEST_P(BusTopic, MayBeRemovedWithoutHavingBeenListenedTo) {
  EXPECT_EQ(client_->RemoveListenMessage("topic"), 0);
}

TEST_P(BusTopic, ReachesNobodyAfterTheClientsEnd) {
  client_->ListenMessage("topic", 0);
  device_.Publish("topic", "1");
  EXPECT_TRUE(HaveArrived(1));
  client_.reset();
  EXPECT_EQ(events_->waiting(), 0U);
  events_->Deliver();
  EXPECT_THAT(listener_.heard, IsEmpty());
}

TEST_P(BusTopic, LetsASlotEndTheClient) {
  client_->ListenMessage("topic", 0);
  listener_.then = [this] { client_.reset(); };
  device_.Publish("topic", "1");
  device_.Publish("topic", "2");
  EXPECT_TRUE(HaveArrived(2));
  events_->Deliver();
  EXPECT_THAT(listener_.heard, ElementsAre("topic 1"));
}

/// A device that never stops publishing.
class FloodedBusTopic : public BusTest {
 protected:
  ~FloodedBusTopic() override {
    enough_ = true;
    flood_.join();
  }

 private:
  std::atomic<bool> enough_{false};
  std::thread flood_{[this] {
    while (!enough_) {
      device_.Publish("topic", "flood");
    }
  }};
};

TEST_P(FloodedBusTopic, SurvivesClientsThatEnd) {
  for (int round = 0; round < 30; ++round) {
    const auto client = NewClient();
    client->ListenMessage("topic", 0);
    listener_.heard.clear();
    EXPECT_TRUE(HearsInAll(1));
  }
}

TEST_P(FloodedBusTopic, SurvivesItsRemovalTimeAndAgain) {
  for (int round = 0; round < 100; ++round) {
    client_->ListenMessage("topic", 0);
    listener_.heard.clear();
    EXPECT_TRUE(HearsInAll(1));
    client_->RemoveListenMessage("topic");
  }
}

TEST_P(BusTopic, BelongsToOneRigWhereASubjectPrefixIsSet) {
  const ScopedEnvironment prefix("TARVEX_SUBJECT_PREFIX", "rig1");
  device_.Serve("queue", [](const std::string&) { return "answer of rig 1"; });
  client_->ListenMessage("topic", 0);
  {
    const ScopedEnvironment other("TARVEX_SUBJECT_PREFIX", "rig2");
    device_.Publish("topic", "of rig 2");
    EXPECT_EQ(Request("queue", ""), 0);
  }
  device_.Publish("topic", "of rig 1");
  EXPECT_EQ(Request("queue", ""), 1);
  EXPECT_TRUE(HearsInAll(1));
  EXPECT_THAT(listener_.heard, ElementsAre("topic of rig 1"));
}

TEST(BusClient, NeedsAnEventService) {
  EXPECT_EQ(tarvex::DpClient::CreateDpClient({}, tarvex::SocketAddress("127.0.0.1", 1), "adapter"),
            nullptr);
}

TEST(BusClient, IsNotMadeForAMalformedAddress) {
  const auto events = boost::make_shared<ManualEventService>();
  EXPECT_EQ(tarvex::DpClient::CreateDpClient(events, tarvex::SocketAddress("", 0), "adapter"),
            nullptr);
}

TEST_P(BusRequest, SharesItsConnectionWhereTheEventServiceReadsIt) {
  device_.Serve("queue", [](const std::string&) { return "answer"; });
  EXPECT_EQ(Request("queue", "text"), 1);
  const std::string connection = device_.last_requester();
  const auto first = std::exchange(client_, NewClient());
  EXPECT_EQ(Request("queue", "text"), 1);
  EXPECT_EQ(device_.last_requester() == connection, GetParam() == Threads::kOfTheEventService);
}

INSTANTIATE_FOR_THREADS(BusRequest);
INSTANTIATE_FOR_THREADS(BusTopic);
INSTANTIATE_FOR_THREADS(FloodedBusTopic);

}  // namespace
