#include "cloud_agent/requests/request_runner.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <stdexcept>
#include <vector>

#include "json_text.h"
#include "support/fake_loop.h"

namespace agent {
namespace {

using std::chrono::milliseconds;
using std::chrono::minutes;
using std::chrono::seconds;
using tarvex::BusOutcome;
using testing::ElementsAre;
using testing::HasSubstr;

/// The plug-in's side of a request is `carry_out_`, by default one that says yes.
class RequestRunnerTest : public testing::Test {
 protected:
  RequestRunnerTest() { options_.topics = {"cameras/CAM1", ""}; }

  void Start() {
    RequestRunner::Host host;
    host.now = [this] { return RequestRunner::TimePoint(loop_.now()); };
    host.has_room = [this] { return room_ > 0; };
    host.carry_out = [this](const Request& request, Json::Value& response) {
      carried_out_.push_back(request.name);
      return carry_out_(response);
    };
    host.send = [this](const OutboundMessage& message) {
      if (message.payload.size() > max_message_bytes_) {
        return false;
      }
      sent_.push_back(message.payload);
      --room_;
      return true;
    };
    runner_ = std::make_unique<RequestRunner>(options_, &line_, std::move(host));
    runner_->SetNames({"get_sn", "gpio_out"});
    line_.Open([this] { runner_->RunNext(); });
  }

  /// Adds a request that waits for its turn.
  void Add(const std::string& text, const std::string& name = "get_sn",
           std::optional<seconds> expires_in = std::nullopt) {
    if (runner_ == nullptr) {
      Start();
    }
    InboundRequest inbound;
    inbound.topic = "cameras/CAM1/request/" + name;
    inbound.payload = text;
    inbound.size = text.size();
    inbound.received_at = RequestRunner::TimePoint(loop_.now());
    inbound.expires_in = expires_in;
    line_.Add(&inbound);
  }

  /// The response to a request that has its turn at once; "" where there is none.
  std::string ResponseTo(const std::string& text, const std::string& name = "get_sn") {
    sent_.clear();
    Add(text, name);
    loop_.Run();
    return sent_.empty() ? "" : sent_.front();
  }

  static std::string WithKey(const std::string& key, const std::string& id = "1",
                             const std::string& payload = "{}") {
    return R"({"id":)" + id + R"(,"version":"1.0","payload":)" + payload +
           R"(,"idempotency_key":")" + key + R"("})";
  }

  /// Has the plug-in refuse after a bus request that came to this.
  void RefuseAfter(BusOutcome outcome, const std::string& reply = "") {
    carry_out_ = [this, outcome, reply](Json::Value&) {
      tarvex::BusRequest request;
      request.queue = "EVS_GPIO_CONTROL";
      request.outcome = outcome;
      request.time = milliseconds(300);
      request.reply = reply;
      runner_->OnBusRequest(request);
      return false;
    };
  }

  FakeLoop loop_;
  RequestLine line_{1000, loop_.Post()};
  RequestRunner::Options options_;
  std::function<bool(Json::Value&)> carry_out_ = [](Json::Value&) { return true; };
  int room_ = 1000000;
  std::size_t max_message_bytes_ = 1000000;
  std::vector<std::string> carried_out_;
  std::vector<std::string> sent_;
  std::unique_ptr<RequestRunner> runner_;
};

constexpr char kPlain[] = R"({"id":"x","version":"1.0","payload":{}})";

TEST_F(RequestRunnerTest, AnswersWithIdResultAndResponse) {
  carry_out_ = [](Json::Value& response) {
    response["a"] = 1;
    return true;
  };
  EXPECT_EQ(ResponseTo(kPlain), R"({"id":"x","response":{"a":1},"result":true,"waited_ms":0})");
  EXPECT_EQ(ResponseTo(R"({"id":17,"version":"1.0","payload":{}})"),
            R"({"id":17,"response":{"a":1},"result":true,"waited_ms":0})");
  EXPECT_EQ(ResponseTo(R"({"version":"1.0","payload":{}})"),
            R"({"response":{"a":1},"result":true,"waited_ms":0})");
}

TEST_F(RequestRunnerTest, PutsTheMessageOfTheRequestsNameIntoTheResponse) {
  carry_out_ = [this](Json::Value&) {
    EXPECT_EQ(runner_->OnMessage("get_sn", Json::Value("S1")), Json::Value("x"));
    EXPECT_TRUE(runner_->OnMessage("ivs_result", Json::Value("other")).isNull());
    return true;
  };
  EXPECT_EQ(ResponseTo(kPlain),
            R"({"answer":"S1","id":"x","response":null,"result":true,"waited_ms":0})");
}

TEST_F(RequestRunnerTest, TakesNoMessageForAnAnswerBetweenRequests) {
  carry_out_ = [this](Json::Value&) {
    runner_->OnMessage("get_sn", Json::Value("S1"));
    return true;
  };
  ResponseTo(kPlain);
  carry_out_ = [](Json::Value&) { return true; };
  EXPECT_TRUE(runner_->OnMessage("get_sn", Json::Value("late")).isNull());
  EXPECT_EQ(ResponseTo(kPlain), R"({"id":"x","response":null,"result":true,"waited_ms":0})");
}

TEST_F(RequestRunnerTest, KeepsTheAnswerOfARequestThatFailed) {
  carry_out_ = [this](Json::Value&) {
    runner_->OnMessage("get_sn", Json::Value(500));
    return false;
  };
  EXPECT_THAT(ResponseTo(kPlain), HasSubstr(R"("answer":500,"code":"refused")"));
}

TEST_F(RequestRunnerTest, SaysWhatIsWrongWithTheRequest) {
  EXPECT_EQ(ResponseTo(R"({"id":"x","payload":{}})"),
            R"({"code":"wrong_version","error":"\"version\" is missing","id":"x",)"
            R"("result":false,"waited_ms":0})");
  EXPECT_THAT(carried_out_, ElementsAre());
  EXPECT_EQ(runner_->errors(), 1U);
}

TEST_F(RequestRunnerTest, SaysThatTheCameraRefuses) {
  carry_out_ = [](Json::Value&) { return false; };
  EXPECT_EQ(ResponseTo(kPlain),
            R"({"code":"refused","error":"the camera refused or did not carry out the request",)"
            R"("id":"x","response":null,"result":false,"waited_ms":0})");
}

TEST_F(RequestRunnerTest, SaysWhatBecameOfTheBusRequestOfARefusal) {
  RefuseAfter(BusOutcome::kNobody);
  EXPECT_THAT(ResponseTo(kPlain), HasSubstr("the request: nobody serves EVS_GPIO_CONTROL\""));
  RefuseAfter(BusOutcome::kTimedOut);
  EXPECT_THAT(ResponseTo(kPlain), HasSubstr(": EVS_GPIO_CONTROL did not answer in 300 ms\""));
  RefuseAfter(BusOutcome::kAnswered, R"({"state_code":400,"error":"no plate"})");
  EXPECT_THAT(ResponseTo(kPlain), HasSubstr(": EVS_GPIO_CONTROL says: no plate\""));
  RefuseAfter(BusOutcome::kAnswered, "no json");
  EXPECT_THAT(ResponseTo(kPlain), HasSubstr("did not carry out the request\""));
}

TEST_F(RequestRunnerTest, TellsABusThatIsNotThereApart) {
  RefuseAfter(BusOutcome::kNotConnected);
  EXPECT_THAT(ResponseTo(kPlain), HasSubstr(R"("code":"offline_device")"));
  EXPECT_THAT(ResponseTo(kPlain), HasSubstr(": the bus is not there\""));
}

TEST_F(RequestRunnerTest, TellsAVersionThatThePluginRefusesApart) {
  carry_out_ = [](Json::Value&) { return false; };
  const std::string odd = R"({"version":"1.1","payload":{}})";
  EXPECT_THAT(ResponseTo(odd), HasSubstr(R"("code":"wrong_version")"));
  RefuseAfter(BusOutcome::kNobody);
  EXPECT_THAT(ResponseTo(odd), HasSubstr(R"("code":"refused")"));
}

TEST_F(RequestRunnerTest, AnswersARequestThatThrows) {
  carry_out_ = [](Json::Value&) -> bool { throw std::runtime_error("no reason"); };
  EXPECT_EQ(ResponseTo(kPlain), R"({"code":"failed","error":"the request failed","id":"x",)"
                                R"("result":false,"waited_ms":0})");
}

TEST_F(RequestRunnerTest, TellsWhatHappenedOnTheBusWhereItIsToDiagnose) {
  options_.diagnose = true;
  RefuseAfter(BusOutcome::kAnswered, R"({"state_code":400,"error":"no plate"})");
  EXPECT_THAT(ResponseTo(kPlain),
              HasSubstr(R"("bus":[{"device_error":"no plate","ms":300,"outcome":"answered",)"
                        R"("queue":"EVS_GPIO_CONTROL","state_code":400}])"));
  RefuseAfter(BusOutcome::kTimedOut);
  EXPECT_THAT(ResponseTo(kPlain), HasSubstr(R"("bus":[{"ms":300,"outcome":"timed_out",)"));
  carry_out_ = [](Json::Value&) { return true; };
  EXPECT_THAT(ResponseTo(kPlain), HasSubstr(R"("bus":[])"));
}

TEST_F(RequestRunnerTest, SaysHowLongARequestHasWaited) {
  Add(kPlain);
  loop_.Advance(milliseconds(0));
  sent_.clear();
  room_ = 0;
  Add(kPlain);
  loop_.Advance(milliseconds(250));
  room_ = 1;
  runner_->OnRoom();
  loop_.Run();
  EXPECT_THAT(sent_, ElementsAre(HasSubstr(R"("waited_ms":250)")));
}

TEST_F(RequestRunnerTest, MovesNothingForARequestThatHasExpired) {
  room_ = 0;
  Add(R"({"id":"m","version":"1.0","payload":{},"expires_ms":1500})", "gpio_out");
  Add(kPlain, "gpio_out", seconds(1));
  Add(R"({"id":"late","version":"1.0","payload":{},"expires_ms":1501})", "gpio_out");
  loop_.Advance(milliseconds(1500));
  room_ = 3;
  runner_->OnRoom();
  loop_.Run();
  EXPECT_THAT(
      sent_,
      ElementsAre(R"({"code":"expired","error":"the request expired 0 ms before its turn",)"
                  R"("id":"m","result":false,"waited_ms":1500})",
                  HasSubstr("expired 500 ms before its turn"), HasSubstr(R"("result":true)")));
  EXPECT_THAT(carried_out_, ElementsAre("gpio_out"));
}

TEST_F(RequestRunnerTest, CarriesARequestWithAKeyOutOnce) {
  carry_out_ = [this](Json::Value&) {
    runner_->OnMessage("get_sn", Json::Value("S1"));
    return true;
  };
  EXPECT_EQ(ResponseTo(WithKey("k")),
            R"({"answer":"S1","id":1,"response":null,"result":true,"waited_ms":0})");
  loop_.Advance(minutes(9));
  EXPECT_EQ(
      ResponseTo(WithKey("k", "2")),
      R"({"answer":"S1","id":2,"repeated":true,"response":null,"result":true,"waited_ms":0})");
  EXPECT_EQ(carried_out_.size(), 1U);
}

TEST_F(RequestRunnerTest, RepeatsARefusalTooButNotWhatHadNoTurnAtThePlugin) {
  carry_out_ = [](Json::Value&) { return false; };
  ResponseTo(WithKey("k"));
  EXPECT_THAT(ResponseTo(WithKey("k")), HasSubstr(R"("code":"refused")"));
  EXPECT_EQ(carried_out_.size(), 1U);
  const std::string late = R"({"version":"1.0","payload":{},"idempotency_key":"l","expires_ms":0})";
  EXPECT_THAT(ResponseTo(late), HasSubstr("expired"));
  ResponseTo(R"({"version":"1.0","payload":{},"idempotency_key":"l"})");
  EXPECT_EQ(carried_out_.size(), 2U);
}

TEST_F(RequestRunnerTest, RefusesTheKeyOfAnotherRequest) {
  ResponseTo(WithKey("k"));
  EXPECT_THAT(ResponseTo(WithKey("k", "1", R"({"type":"get_sn"})")),
              HasSubstr(R"("code":"key_reused")"));
  EXPECT_THAT(ResponseTo(WithKey("k"), "gpio_out"), HasSubstr(R"("code":"key_reused")"));
  EXPECT_EQ(carried_out_.size(), 1U);
}

TEST_F(RequestRunnerTest, BeginsNoRequestThatItCouldNotAnswer) {
  room_ = 2;
  for (int i = 0; i < 5; ++i) {
    Add(kPlain);
  }
  loop_.Run();
  EXPECT_EQ(carried_out_.size(), 2U);
  room_ = 1;
  runner_->OnRoom();
  loop_.Run();
  EXPECT_EQ(carried_out_.size(), 3U);
  room_ = 10;
  runner_->OnRoom();
  loop_.Run();
  EXPECT_EQ(sent_.size(), 5U);
}

TEST_F(RequestRunnerTest, SaysThatAResponseIsTooLargeForTheBroker) {
  max_message_bytes_ = 200;
  carry_out_ = [](Json::Value& response) {
    response = std::string(200, 'x');
    return true;
  };
  EXPECT_EQ(ResponseTo(kPlain),
            R"({"code":"too_large","error":"the response is larger than the broker takes",)"
            R"("id":"x","result":true,"waited_ms":0})");
}

}  // namespace
}  // namespace agent
