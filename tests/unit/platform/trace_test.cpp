#include "platform/trace.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "json_text.h"
#include "manual_event_service.h"
#include "platform/nats_handle.h"
#include "platform/nats_link.h"
#include "scoped_environment.h"
#include "support/nats_server.h"
#include "support/wait_until.h"
#include "tarvex/base64.h"

namespace tarvex {
namespace {

class TraceTest : public testing::Test {
 protected:
  Json::Value TellAndRead(const Json::Value& members) {
    std::string told;
    const Trace trace("program", "CAM1", [&told](std::string text) { told = std::move(text); });
    trace.Tell("stored", members, 1234567890123456);
    EXPECT_EQ(told.find('\n'), std::string::npos);
    Json::Value event;
    EXPECT_TRUE(Json::String2Json(told, event)) << told;
    return event;
  }
};

TEST_F(TraceTest, GivesEachEventTheMembersThatAllHave) {
  Json::Value members;
  members["plate_id"] = 7;
  const Json::Value event = TellAndRead(members);
  EXPECT_EQ(event["by"], "program");
  EXPECT_EQ(event["sn"], "CAM1");
  EXPECT_EQ(event["event"], "stored");
  EXPECT_EQ(event["at_us"].asInt64(), 1234567890123456);
  EXPECT_EQ(event["plate_id"], 7);
  EXPECT_EQ(event.size(), 5U);
}

TEST_F(TraceTest, TellsTextThatIsNotUtf8AsBase64) {
  Json::Value event;
  AddTracedText(&event, "payload", "gr\xC3\xBCn");
  AddTracedText(&event, "topic", "\xFF\x01");
  EXPECT_EQ(event["payload"], "gr\xC3\xBCn");
  EXPECT_EQ(event["topic_base64"], "/wE=");
  EXPECT_FALSE(event.isMember("cut"));
}

TEST_F(TraceTest, CutsALongTextBetweenTwoCharacters) {
  Json::Value event;
  AddTracedText(&event, "payload", std::string(kMaxTraced_bytes - 1, 'a') + "\xC3\xBC" + "b");
  EXPECT_EQ(event["payload"].asString(), std::string(kMaxTraced_bytes - 1, 'a'));
  EXPECT_EQ(event["cut"], true);
}

TEST_F(TraceTest, CutsLongBytesBeforeTheyBecomeBase64) {
  Json::Value event;
  AddTracedBytes(&event, "body", std::string(kMaxTraced_bytes + 1, 'a'));
  EXPECT_EQ(event["body"], Base64::Encode(std::string(kMaxTraced_bytes, 'a')));
  EXPECT_EQ(event["cut"], true);
}

/// A sink on a bus with somebody who listens.
class BusTraceSinkTest : public testing::Test {
 protected:
  std::string Heard() {
    natsMsg* received = nullptr;
    natsSubscription_NextMsg(&received, subscription_.get(), 20000);
    const NatsMessage message(received);
    return received == nullptr ? "nothing" : natsMsg_GetData(received);
  }

  void Listen() {
    natsSubscription* created = nullptr;
    natsConnection_SubscribeSync(&created, listener_->get(), BusSubject(kTraceTopic).c_str());
    natsConnection_FlushTimeout(listener_->get(), 10000);
    subscription_.reset(created);
  }

  NatsServer server_;
  ScopedEnvironment address_{"TARVEX_BUS_ADDRESS", server_.address()};
  ScopedEnvironment prefix_{"TARVEX_SUBJECT_PREFIX", "desk"};
  ManualSocketService service_;
  NatsSubscription subscription_;
  std::shared_ptr<NatsLink> listener_ = NatsLink::Connect({"127.0.0.1", server_.port()}, "l");
};

TEST_F(BusTraceSinkTest, PublishesInOrderBelowThePrefix) {
  Listen();
  const Trace::Sink sink = BusTraceSink(&service_, "t");
  sink("one");
  sink("two");
  service_.Deliver();
  EXPECT_EQ(Heard(), "one");
  EXPECT_EQ(Heard(), "two");
}

TEST_F(BusTraceSinkTest, SendsAtItsEndWhatWasToldBefore) {
  Listen();
  {
    const Trace::Sink sink = BusTraceSink(&service_, "t");
    for (int i = 0; i < 200; ++i) {
      sink(std::to_string(i));
    }
  }
  for (int i = 0; i < 200; ++i) {
    EXPECT_EQ(Heard(), std::to_string(i));
  }
}

TEST_F(BusTraceSinkTest, NeverWaitsForABusThatDoesNotRead) {
  const Trace::Sink sink = BusTraceSink(&service_, "t");
  server_.Freeze();
  const std::string text(std::size_t{1} << 18U, 'x');
  const auto time_of = [](const std::function<void()>& action) {
    const auto begin = std::chrono::steady_clock::now();
    action();
    return std::chrono::steady_clock::now() - begin;
  };
  // More than the socket's buffers and the sink together hold. Not copied while the time runs.
  std::vector<std::string> texts(200, text);
  const auto told = time_of([&] {
    for (std::string& next : texts) {
      sink(std::move(next));
    }
  });
  const auto published = time_of([&] {
    while (natsConnection_PublishString(listener_->get(), "s", text.c_str()) == NATS_OK) {
    }
  });
  EXPECT_LT(told, published);
  server_.Thaw();
}

TEST_F(BusTraceSinkTest, GoesOnWhenTheBusIsBack) {
  const Trace::Sink sink = BusTraceSink(&service_, "t");
  server_.Kill();
  ASSERT_TRUE(WaitUntil([this] { return !listener_->IsConnected(); }));
  sink("lost");
  server_.Start();
  ASSERT_TRUE(WaitUntil([this] { return listener_->IsConnected(); }));
  Listen();
  EXPECT_TRUE(WaitUntil([&] {
    sink("text");
    service_.Deliver();
    natsMsg* received = nullptr;
    natsSubscription_NextMsg(&received, subscription_.get(), 20);
    const NatsMessage message(received);
    return received != nullptr;
  }));
}

TEST(BusTraceSinkWithoutABus, DropsAllWhereThereCanBeNoConnection) {
  const ScopedEnvironment address("TARVEX_BUS_ADDRESS", "nonsense");
  ManualSocketService service;
  const Trace::Sink sink = BusTraceSink(&service, "t");
  sink("text");
}

}  // namespace
}  // namespace tarvex
