#include "cloud_agent/status/status.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "../fake_bus.h"
#include "json_text.h"

namespace agent {
namespace {

using ::testing::ElementsAre;

Json::Value Parsed(const std::string& text) {
  Json::Value value;
  EXPECT_TRUE(Json::String2Json(text, value)) << text;
  return value;
}

TEST(Status, OfACameraThatIsNotThereIsTheWill) {
  EXPECT_EQ(OfflineStatus(), R"({"online":false})");
}

/// The status text of an online camera, read back.
Json::Value Online(const Status& status) { return Parsed(OnlineStatus(status)); }

TEST(Status, NamesRequestsAndMessages) {
  Status status;
  status.requests = {"b", "a"};
  status.publishes = {"c"};
  const Json::Value document = Online(status);
  EXPECT_EQ(document["online"], Json::Value(true));
  EXPECT_EQ(document["requests"], Parsed(R"(["a","b"])"));
  EXPECT_EQ(document["publishes"], Parsed(R"(["c"])"));
  EXPECT_TRUE(document.isMember("undelivered"));
  EXPECT_TRUE(document["undelivered"].isNull());
}

TEST(Status, TellsTheDeviceApartFromTheAgent) {
  Status status;
  status.health = Parsed(R"({"bus":true})");
  EXPECT_EQ(Online(status)["device"], Json::Value(false));
  status.is_device_there = true;
  EXPECT_EQ(Online(status)["device"], Json::Value(true));
  EXPECT_EQ(Online(status)["health"], status.health);
}

TEST(Status, TellsVersionsAndTheStart) {
  Status status;
  status.versions = {"1", "ab12", "3"};
  status.started_at = 77;
  EXPECT_EQ(Online(status)["versions"], Parsed(R"({"agent":"1","plugin":"ab12","camera":"3"})"));
  EXPECT_EQ(Online(status)["started_at"], Json::Value(77));
  EXPECT_THAT(AgentVersion(), testing::MatchesRegex("[0-9]+\\.[0-9]+\\.[0-9]+"));
}

TEST(Status, TellsTheLastError) {
  Status status;
  EXPECT_TRUE(Online(status)["last_error"].isNull());
  const std::chrono::system_clock::time_point at(std::chrono::seconds(99));
  status.last_error = tarvex::LoggedError{at, "platform: why"};
  EXPECT_EQ(Online(status)["last_error"], Parsed(R"({"text":"platform: why","at":99})"));
}

TEST(Status, HasEveryCounter) {
  Status status;
  StatusCounters& counters = status.counters;
  std::uint64_t number = 0;
  for (std::uint64_t* counter :
       {&counters.connections, &counters.published, &counters.acknowledged,
        &counters.refused_by_broker, &counters.dropped_link_down, &counters.dropped_backlog_full,
        &counters.dropped_not_publishable, &counters.pictures_failed,
        &counters.subscriptions_refused, &counters.delivery.dropped_offline_busy,
        &counters.results_waiting, &counters.delivery.results_overflowed,
        &counters.delivery.results_held_back, &counters.delivery.results_unheard,
        &counters.delivery.results_without_publication, &counters.delivery.ignored_acks,
        &counters.delivery.withheld_acks, &counters.requests, &counters.request_errors}) {
    *counter = ++number;
  }
  EXPECT_EQ(Online(status)["counters"],
            Parsed(R"({"connections":1,"published":2,"acknowledged":3,"refused_by_broker":4,
                       "dropped_link_down":5,"dropped_backlog_full":6,
                       "dropped_not_publishable":7,"pictures_failed":8,
                       "subscriptions_refused":9,"dropped_offline_busy":10,
                       "results_waiting":11,"results_overflowed":12,"results_held_back":13,
                       "results_unheard":14,"results_without_publication":15,
                       "ignored_acks":16,"withheld_acks":17,
                       "requests":18,"request_errors":19})"));
}

TEST(Status, TellsWhatIsUndelivered) {
  Status status;
  status.undelivered = Undelivered{4, 90};
  EXPECT_EQ(Online(status)["undelivered"], Parsed(R"({"count":4,"oldest_age_s":90})"));
  status.undelivered = Undelivered{0, std::nullopt};
  EXPECT_EQ(Online(status)["undelivered"], Parsed(R"({"count":0,"oldest_age_s":null})"));
}

TEST(UndeliveredQuery, AsksTheStore) {
  FakeBus bus;
  bus.reply = R"({"body":{"offline_count":5,"oldest_age_s":61}})";
  const auto undelivered = QueryUndelivered(&bus, 300);
  EXPECT_THAT(bus.requests,
              ElementsAre(R"(BUS_GET_IVS_INFO {"type":"STP_GET_MQTT_OFFLINE_COUNT"})"));
  ASSERT_TRUE(undelivered);
  EXPECT_EQ(undelivered->count, 5);
  EXPECT_EQ(undelivered->oldest_age_s, 61);
}

TEST(UndeliveredQuery, DoesWithoutAnAge) {
  FakeBus bus;
  bus.reply = R"({"body":{"offline_count":0}})";
  const auto undelivered = QueryUndelivered(&bus, 300);
  ASSERT_TRUE(undelivered);
  EXPECT_EQ(undelivered->oldest_age_s, std::nullopt);
}

TEST(UndeliveredQuery, FailsOnAnythingElse) {
  EXPECT_FALSE(QueryUndelivered(nullptr, 300));
  FakeBus bus;
  for (const char* reply : {"", "{", "[]", "5", R"({"body":5})", R"({"body":{}})",
                            R"({"body":{"offline_count":"7"}})"}) {
    bus.reply = reply;
    EXPECT_FALSE(QueryUndelivered(&bus, 300)) << reply;
  }
}

}  // namespace
}  // namespace agent
