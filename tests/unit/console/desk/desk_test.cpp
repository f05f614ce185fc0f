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
  EXPECT_FALSE(All()["cameras"]["FAR1"]["on_desk"].asBool());
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
  for (int i = 0; i < 300; ++i) {
    desk_.OnStatus("C" + std::to_string(i), "{}", kNow_us);
  }
  EXPECT_EQ(All()["cameras"].size(), 256U);
}

TEST_F(TheDesk, KeepsABoundedNumberOfLines) {
  for (int i = 0; i < 300; ++i) {
    desk_.Tell("line", "info", kNow_us);
  }
  EXPECT_EQ(All()["told"].size(), 200U);
}

}  // namespace
}  // namespace console
