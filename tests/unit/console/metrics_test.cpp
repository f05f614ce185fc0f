#include "console/metrics.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace console {
namespace {

using testing::HasSubstr;

Passport Answered(const std::string& name, const std::string& response) {
  Passport passport;
  passport.sn = "CAM1";
  passport.kind = "request";
  passport.name = name;
  passport.response = {"topic", response, 0, 2000};
  return passport;
}

TEST(Metrics, CountTheStepsOfResults) {
  Metrics metrics({});
  Passport passport;
  passport.sn = "CAM1";
  passport.kind = "result";
  metrics.OnStep(passport, "stored");
  passport.ack_us = 1500;
  metrics.OnStep(passport, "acknowledged");
  EXPECT_THAT(metrics.Text(), HasSubstr(R"(camera_results_total{sn="CAM1",step="stored"} 1)"));
  EXPECT_THAT(metrics.Text(),
              HasSubstr(R"(camera_acknowledgement_seconds_bucket{sn="CAM1",le="0.0025"} 1)"));
}

TEST(Metrics, CountRequestsByNameAndOutcome) {
  Metrics metrics({"get_sn"});
  metrics.OnStep(Answered("get_sn", R"({"result":true})"), "answered");
  metrics.OnStep(Answered("get_sn", R"({"result":false,"code":"refused"})"), "answered");
  EXPECT_THAT(metrics.Text(),
              HasSubstr(R"(camera_requests_total{name="get_sn",outcome="done",sn="CAM1"} 1)"));
  EXPECT_THAT(metrics.Text(),
              HasSubstr(R"(camera_requests_total{name="get_sn",outcome="refused",sn="CAM1"} 1)"));
  EXPECT_THAT(metrics.Text(), HasSubstr("camera_request_seconds_count"));
}

TEST(Metrics, GiveNamesThatSomebodyMadeUpNoLabel) {
  Metrics metrics({"get_sn"});
  metrics.OnStep(Answered("made_up", "no JSON"), "answered");
  EXPECT_THAT(metrics.Text(), HasSubstr(R"(name="other",outcome="unreadable")"));
}

TEST(Metrics, ShowTheBacklog) {
  Metrics metrics({});
  metrics.OnBacklog("CAM1", 7);
  EXPECT_THAT(metrics.Text(), HasSubstr(R"(camera_backlog_results{sn="CAM1"} 7)"));
}

TEST(Metrics, ShowWhoIsOnline) {
  Metrics metrics({});
  metrics.OnOnline("CAM1", true);
  metrics.OnOnline("CAM2", true);
  metrics.OnOnline("CAM2", false);
  EXPECT_THAT(metrics.Text(), HasSubstr(R"(camera_online{sn="CAM1"} 1)"));
  EXPECT_THAT(metrics.Text(), HasSubstr(R"(camera_online{sn="CAM2"} 0)"));
}

}  // namespace
}  // namespace console
