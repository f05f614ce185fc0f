#include "console/desk/desk.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "json_text.h"

namespace console {
namespace {

constexpr Time_us kNow_us = 1000000;

class TheDesk : public testing::Test {
 protected:
  TheDesk() { desk_.AddCamera("CAM1", true); }

  static Json::Value World(int undelivered) {
    Json::Value world;
    world["results"]["undelivered"] = undelivered;
    world["results"]["oldest_undelivered_age_s"] = 4;
    return world;
  }

  void ComesUp() {
    desk_.OnBroker(true, kNow_us);
    desk_.OnBus(true, kNow_us);
    desk_.OnWorld("CAM1", World(0), "", kNow_us);
    desk_.OnStatus("CAM1", R"({"online":true})", kNow_us);
  }

  void Arrives(const std::string& sn, const std::string& plate) {
    Passport passport;
    passport.sn = sn;
    passport.plate_id = 1;
    passport.plate = plate;
    desk_.OnStep(passport, "at_the_broker", kNow_us);
  }

  Json::Value All() { return desk_.All(kNow_us); }
  Json::Value Changed() { return desk_.TakeChanged(kNow_us); }

  Desk desk_{{"127.0.0.1:1", "127.0.0.1:2"}};
};

TEST_F(TheDesk, IsNoOutageBeforeItIsUp) {
  EXPECT_TRUE(All()["desk"]["outage"].isNull());
  ComesUp();
  EXPECT_TRUE(All()["desk"]["outage"].isNull());
  desk_.OnStatus("CAM1", R"({"online":false})", kNow_us);
  EXPECT_TRUE(All()["desk"]["outage"]["running"].asBool());
}

TEST_F(TheDesk, TakesACutLinkForAnOutage) {
  ComesUp();
  desk_.OnLink({"whole", 0, 0, 1, 7105}, kNow_us);
  EXPECT_TRUE(All()["desk"]["outage"].isNull());
  desk_.OnLink({"cut", 0, 0, 0, 7105}, kNow_us);
  EXPECT_TRUE(All()["desk"]["outage"]["running"].asBool());
  EXPECT_THAT(All()["told"][All()["told"].size() - 1]["text"].asString(),
              testing::HasSubstr("cut"));
}

TEST_F(TheDesk, ShowsTheBacklogThatTheCameraCounts) {
  ComesUp();
  desk_.OnWorld("CAM1", World(10), "", kNow_us);
  EXPECT_EQ(All()["cameras"]["CAM1"]["backlog"]["count"].asInt(), 10);
  EXPECT_EQ(All()["cameras"]["CAM1"]["backlog"]["oldest_age_s"].asInt(), 4);
}

TEST_F(TheDesk, ShowsTheReportedBacklogOfACameraElsewhere) {
  desk_.OnStatus("FAR1", R"({"online":true,"undelivered":{"count":3,"oldest_age_s":9}})", kNow_us);
  EXPECT_EQ(All()["cameras"]["FAR1"]["backlog"]["count"].asInt(), 3);
  EXPECT_EQ(All()["cameras"]["FAR1"]["backlog"]["at_us"].asInt64(), kNow_us);
  EXPECT_EQ(desk_.BacklogOf("FAR1"), 3);
  EXPECT_FALSE(All()["cameras"]["FAR1"]["on_desk"].asBool());
}

TEST_F(TheDesk, SaysSinceWhenTheStatusIsNotAsBefore) {
  desk_.OnStatus("FAR1", R"({"online":true,"started_at":1700000000})", kNow_us);
  EXPECT_TRUE(All()["cameras"]["FAR1"]["since_us"].isNull());
  EXPECT_EQ(All()["cameras"]["FAR1"]["started_at"].asInt64(), 1700000000);
  desk_.OnStatus("FAR1", R"({"online":false})", kNow_us + 5);
  desk_.OnStatus("FAR1", R"({"online":false})", kNow_us + 9);
  EXPECT_EQ(All()["cameras"]["FAR1"]["since_us"].asInt64(), kNow_us + 5);
  EXPECT_FALSE(desk_.IsOnline("FAR1"));
}

TEST_F(TheDesk, CountsTheResultsOfEachCameraAtTheBroker) {
  desk_.OnStatus("FAR1", R"({"online":true})", kNow_us);
  EXPECT_FALSE(All().isMember("recent"));
  Arrives("FAR1", "AB12");
  EXPECT_EQ(All()["recent"]["FAR1"]["per_minute"].asInt(), 1);
  EXPECT_EQ(All()["recent"]["FAR1"]["plate"].asString(), "AB12");
  Arrives("UNKNOWN", "AB12");
  EXPECT_EQ(All()["recent"].size(), 1U);
}

TEST_F(TheDesk, SendsTheCountsThatHaveChangedOnly) {
  desk_.OnStatus("FAR1", R"({"online":true})", kNow_us);
  Arrives("FAR1", "AB12");
  Changed();
  Arrives("CAM1", "CD34");
  const Json::Value changed = Changed();
  EXPECT_EQ(changed["recent"].getMemberNames(), std::vector<std::string>{"CAM1"});
  EXPECT_FALSE(changed.isMember("cameras"));
  EXPECT_FALSE(Changed().isMember("recent"));
  desk_.OnTime(kNow_us + 60 * kSecond_us);
  EXPECT_EQ(Changed()["recent"].size(), 2U);
}

TEST_F(TheDesk, HasNoOutageWithoutABus) {
  Desk broker_only({"127.0.0.1:1", ""});
  broker_only.OnBroker(true, kNow_us);
  broker_only.OnStatus("FAR1", R"({"online":true})", kNow_us);
  broker_only.OnBroker(false, kNow_us);
  EXPECT_TRUE(broker_only.All(kNow_us)["desk"]["outage"].isNull());
  EXPECT_TRUE(broker_only.All(kNow_us)["desk"]["bus"].isNull());
}

TEST_F(TheDesk, SaysWhyACameraDoesNotAnswer) {
  ComesUp();
  desk_.OnWorld("CAM1", {}, "no answer in time", kNow_us);
  EXPECT_TRUE(All()["cameras"]["CAM1"]["world"].isNull());
  EXPECT_EQ(All()["cameras"]["CAM1"]["world_error"].asString(), "no answer in time");
}

TEST_F(TheDesk, SendsWhatHasChangedOnly) {
  ComesUp();
  Changed();
  EXPECT_TRUE(Changed().isNull());
  desk_.OnStatus("CAM1", R"({"online":true,"more":1})", kNow_us);
  const Json::Value changed = Changed();
  EXPECT_TRUE(changed.isMember("cameras"));
  EXPECT_FALSE(changed.isMember("told"));
}

TEST_F(TheDesk, PassesOverAStatusThatIsNone) {
  desk_.OnStatus("CAM2", "no JSON", kNow_us);
  desk_.OnStatus("CAM2", "[1]", kNow_us);
  EXPECT_FALSE(desk_.Knows("CAM2"));
}

TEST_F(TheDesk, KnowsABoundedNumberOfCameras) {
  for (int i = 0; i < 5000; ++i) {
    desk_.OnStatus("C" + std::to_string(i), "{}", kNow_us);
  }
  EXPECT_EQ(All()["cameras"].size(), 4096U);
}

TEST_F(TheDesk, KeepsABoundedNumberOfLines) {
  for (int i = 0; i < 300; ++i) {
    desk_.Tell("line", "info", kNow_us);
  }
  EXPECT_EQ(All()["told"].size(), 200U);
}

}  // namespace
}  // namespace console
