// Every request: carried out, with bodies that are wrong, and with a service that is
// down, slow or talks nonsense.
#include <algorithm>
#include <iterator>
#include <vector>

#include "request_cases.h"
#include "rig_test.h"

namespace {

class EveryRequest : public RigTest, public testing::WithParamInterface<RequestCase> {
 protected:
  void SetUp() override {
    rig_.StartCamera();
    rig_.StartAgent({"--diagnose"});
    rig_.Ctl({"car", "AB12345"});
    AwaitPlate("AB12345");
  }

  Json::Value Ask(const std::string& body) {
    const Json::Value response = rig_.Request(GetParam().name, body);
    EXPECT_TRUE(response["waited_ms"].isInt()) << response;
    EXPECT_EQ(response["error"].isString(), !response["result"].asBool()) << response;
    return response;
  }

  void ServiceIs(const std::vector<std::string>& mode) {
    std::vector<std::string> command = {"service", GetParam().service};
    command.insert(command.end(), mode.begin(), mode.end());
    rig_.Ctl(command);
  }

  /// How the last bus request of a request ended.
  static std::string BusOutcome(const Json::Value& response) {
    const Json::Value& bus = response["bus"];
    return bus.empty() ? "none" : bus[bus.size() - 1]["outcome"].asString();
  }
};

TEST_P(EveryRequest, IsDoneAndAnswered) {
  const Json::Value response = Ask(GetParam().good_body);
  EXPECT_EQ(InShort(response), GetParam().done) << response;
  EXPECT_EQ(BusOutcome(response), GetParam().service.empty() ? "none" : "answered");
  if (response.isMember("answer")) {
    const Json::Value message = rig_.AwaitMessage(GetParam().name);
    EXPECT_EQ(message["payload"], response["answer"]);
    EXPECT_EQ(message["id"], response["id"]);
  }
}

TEST_P(EveryRequest, IsRefusedWithABodyThatIsWrong) {
  for (const std::string& body : GetParam().refused_bodies) {
    EXPECT_EQ(InShort(Ask(body)), "refused") << body;
  }
}

TEST_P(EveryRequest, OfAnotherVersionIsToldSo) {
  Json::Value payload;
  payload["type"] = GetParam().name;
  if (!GetParam().good_body.empty()) {
    payload["body"] = ParseJson(GetParam().good_body);
  }
  EXPECT_EQ(InShort(rig_.RequestWith(GetParam().name, payload, "1.1")),
            GetParam().needs_version ? "wrong_version" : GetParam().done);
}

/// Of the requests that ask one.
class EveryService : public EveryRequest {};

TEST_P(EveryService, MakesItsRequestComeToThis) {
  ServiceIs({"down"});
  const Json::Value with_none = Ask(GetParam().good_body);
  EXPECT_EQ(InShort(with_none), GetParam().down) << with_none;
  EXPECT_EQ(BusOutcome(with_none), "nobody");
  ServiceIs({"garbage"});
  const Json::Value with_garbage = Ask(GetParam().good_body);
  EXPECT_EQ(InShort(with_garbage), GetParam().garbage) << with_garbage;
  EXPECT_EQ(BusOutcome(with_garbage), "answered");
  ServiceIs({"slow", "60000"});
  const Json::Value with_slow = Ask(GetParam().good_body);
  EXPECT_EQ(InShort(with_slow), GetParam().down) << with_slow;
  EXPECT_EQ(BusOutcome(with_slow), "timed_out");
}

std::vector<RequestCase> CasesWithService() {
  std::vector<RequestCase> cases;
  std::copy_if(RequestCases().begin(), RequestCases().end(), std::back_inserter(cases),
               [](const RequestCase& row) { return !row.service.empty(); });
  return cases;
}

std::string NameOf(const testing::TestParamInfo<RequestCase>& test) { return test.param.name; }

INSTANTIATE_TEST_SUITE_P(Rig, EveryRequest, testing::ValuesIn(RequestCases()), NameOf);
INSTANTIATE_TEST_SUITE_P(Rig, EveryService, testing::ValuesIn(CasesWithService()), NameOf);

TEST(EveryRequestTable, HasThemAll) { EXPECT_EQ(RequestCases().size(), 23U); }

}  // namespace
