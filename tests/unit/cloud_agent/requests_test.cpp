#include "cloud_agent/request_router.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <stdexcept>

#include "json_text.h"

namespace agent {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;

class Router : public ::testing::Test {
 protected:
  std::vector<OutboundMessage> Ask(const std::string& name, const std::string& payload) {
    InboundRequest request;
    request.topic = "cameras/CAM1/request/" + name;
    request.payload = payload;
    request.size = payload.size();
    return router_.Answer(request);
  }

  /// The one response, which must go to the request's own response topic.
  std::string ResponseTo(const std::string& name, const std::string& payload) {
    const std::vector<OutboundMessage> messages = Ask(name, payload);
    EXPECT_EQ(messages.size(), 1U);
    EXPECT_EQ(messages.at(0).topic, "cameras/CAM1/response/" + name);
    EXPECT_FALSE(messages.at(0).retain);
    return messages.at(0).payload;
  }

  /// What is wrong with a request; it must not have been carried out.
  std::string ErrorOf(const std::string& payload, const std::string& name = "get_sn") {
    Json::Value response;
    EXPECT_TRUE(Json::String2Json(ResponseTo(name, payload), response));
    EXPECT_EQ(response["result"], Json::Value(false));
    EXPECT_TRUE(executed_.empty());
    return response["error"].asString();
  }

  bool Execute(const std::string& name, const Json::Value& payload, const std::string& version,
               Json::Value& response) {
    std::string text;
    Json::Json2String(payload, text);
    executed_ += name + " " + version + " " + text;
    if (throws_) {
      throw std::runtime_error("no reason");
    }
    response = response_;
    return result_;
  }

  Json::Value response_;
  bool result_ = true;
  bool throws_ = false;
  std::string executed_;
  RequestRouter router_{
      "cameras/CAM1",
      {"get_sn", "gpio_out"},
      200,
      [this](const std::string& name, const Json::Value& payload, const std::string& version,
             Json::Value& response) { return Execute(name, payload, version, response); }};
};

TEST_F(Router, CarriesOutARequestAndAnswersOnce) {
  response_["state_code"] = 200;
  EXPECT_EQ(ResponseTo("gpio_out", R"({"id":"r1","version":"1.0","payload":{"type":"gpio_out"}})"),
            R"({"id":"r1","response":{"state_code":200},"result":true})");
  EXPECT_EQ(executed_, R"(gpio_out 1.0 {"type":"gpio_out"})");
}

TEST_F(Router, EchoesANumberAsId) {
  EXPECT_EQ(ResponseTo("get_sn", R"({"id":17,"version":"1.0","payload":{}})"),
            R"({"id":17,"response":null,"result":true})");
}

TEST_F(Router, AnswersWithoutIdWhereTheRequestHasNone) {
  EXPECT_EQ(ResponseTo("get_sn", R"({"version":"1.0","payload":{}})"),
            R"({"response":null,"result":true})");
}

TEST_F(Router, PassesThePayloadOnWhateverItsShape) {
  ResponseTo("get_sn", R"({"version":"","payload":[1]})");
  EXPECT_EQ(executed_, "get_sn  [1]");
}

TEST_F(Router, SaysWhenTheCameraRefuses) {
  result_ = false;
  EXPECT_EQ(ResponseTo("get_sn", R"({"id":"x","version":"1.0","payload":{}})"),
            R"({"error":"the camera refused or did not carry out the request",)"
            R"("id":"x","response":null,"result":false})");
}

TEST_F(Router, LetsNoExceptionOut) {
  throws_ = true;
  EXPECT_EQ(ResponseTo("get_sn", R"({"id":"x","version":"1.0","payload":{}})"),
            R"({"error":"the request failed","id":"x","result":false})");
}

TEST_F(Router, NamesWhatIsWrongWithARequest) {
  EXPECT_EQ(ErrorOf(""), "the request is empty");
  EXPECT_EQ(ErrorOf("{"), "the request is not JSON");
  EXPECT_EQ(ErrorOf("[]"), "the request is not a JSON object");
  EXPECT_EQ(ErrorOf(R"({"payload":{}})"), "\"version\" is missing");
  EXPECT_EQ(ErrorOf(R"({"version":1.0,"payload":{}})"), "\"version\" is not a text");
  EXPECT_EQ(ErrorOf(R"({"version":"1.0"})"), "\"payload\" is missing");
  EXPECT_EQ(ErrorOf(R"({"version":"1.0","payload":{}})", "GET_SN"), "unknown request \"GET_SN\"");
  EXPECT_EQ(ErrorOf(R"({"version":"1.0","payload":{}})", "get_sn/x"),
            "unknown request \"get_sn/x\"");
  EXPECT_EQ(ErrorOf(R"({"version":"1.0","payload":{}})", ""), "unknown request \"\"");
  EXPECT_EQ(ErrorOf(R"({"id":[],"version":"1.0","payload":{}})"),
            "\"id\" is neither a number nor a text of at most 256 bytes");
  EXPECT_EQ(router_.Requests(), 10U);
  EXPECT_EQ(router_.Errors(), 10U);
}

TEST_F(Router, EchoesTheIdOfAMalformedRequest) {
  EXPECT_EQ(ResponseTo("get_sn", R"({"id":"x","payload":{}})"),
            R"({"error":"\"version\" is missing","id":"x","result":false})");
}

TEST_F(Router, DoesNotLookAtWhatIsTooLarge) {
  EXPECT_EQ(ErrorOf(std::string(201, ' ')), "the request has 201 bytes, more than the 200 allowed");
  const std::string fits = R"({"version":"1.0","payload":{}})";
  ResponseTo("get_sn", fits + std::string(200 - fits.size(), ' '));
  EXPECT_FALSE(executed_.empty());
}

TEST_F(Router, DoesNotEchoAnIdWithoutBounds) {
  EXPECT_THAT(ErrorOf(R"({"id":")" + std::string(180, '[') + R"("})"), HasSubstr("version"));
  RequestRouter roomy("cameras/CAM1", {"get_sn"}, 100000, {});
  InboundRequest request;
  request.topic = "cameras/CAM1/request/get_sn";
  request.payload = R"({"id":")" + std::string(257, 'x') + R"(","version":"1.0","payload":{}})";
  request.size = request.payload.size();
  EXPECT_LT(roomy.Answer(request).at(0).payload.size(), 200U);
}

TEST_F(Router, RefusesARetainedRequest) {
  InboundRequest request;
  request.topic = "cameras/CAM1/request/get_sn";
  request.payload = R"({"id":"x","version":"1.0","payload":{}})";
  request.size = request.payload.size();
  request.retained = true;
  EXPECT_THAT(router_.Answer(request).at(0).payload,
              HasSubstr("retained requests are not carried out"));
  EXPECT_TRUE(executed_.empty());
}

TEST_F(Router, AnswersDeepNestingLikeAnyNonsense) {
  RequestRouter roomy("cameras/CAM1", {"get_sn"}, 1000000, {});
  InboundRequest request;
  request.topic = "cameras/CAM1/request/get_sn";
  request.payload = std::string(100000, '[');
  request.size = request.payload.size();
  EXPECT_THAT(roomy.Answer(request).at(0).payload, HasSubstr("not JSON"));
}

std::vector<std::string> Topics(const std::vector<OutboundMessage>& messages) {
  std::vector<std::string> topics;
  for (const OutboundMessage& message : messages) {
    topics.push_back(message.topic);
  }
  return topics;
}

class ResponseTopic : public Router {
 protected:
  std::vector<OutboundMessage> AskFor(const std::string& response_topic) {
    InboundRequest request;
    request.topic = "cameras/CAM1/request/get_sn";
    request.payload = R"({"version":"1.0","payload":{}})";
    request.size = request.payload.size();
    request.response_topic = response_topic;
    request.has_correlation_data = true;
    request.correlation_data = std::string("\0c", 2);
    return router_.Answer(request);
  }
};

TEST_F(ResponseTopic, GetsTheSameResponseWithTheCorrelationData) {
  const std::vector<OutboundMessage> messages = AskFor("my/answers");
  EXPECT_THAT(Topics(messages), ElementsAre("cameras/CAM1/response/get_sn", "my/answers"));
  EXPECT_EQ(messages.at(1).payload, messages.at(0).payload);
  EXPECT_TRUE(messages.at(1).has_correlation_data);
  EXPECT_EQ(messages.at(1).correlation_data, std::string("\0c", 2));
}

TEST_F(ResponseTopic, ThatIsTheUsualOneGetsItOnce) {
  EXPECT_THAT(Topics(AskFor("cameras/CAM1/response/get_sn")),
              ElementsAre("cameras/CAM1/response/get_sn"));
}

TEST_F(ResponseTopic, ThatNobodyCanPublishToIsLeftOut) {
  EXPECT_THAT(Topics(AskFor("my/#")), ElementsAre("cameras/CAM1/response/get_sn"));
  EXPECT_THAT(Topics(AskFor("$SYS/x")), ElementsAre("cameras/CAM1/response/get_sn"));
}

TEST(RouterRefusal, EchoesTheIdAndSaysWhy) {
  InboundRequest request;
  request.topic = "cameras/CAM1/request/get_sn";
  request.payload = R"({"id":"x"})";
  EXPECT_EQ(RequestRouter::Refusal("cameras/CAM1", request, "busy").at(0).payload,
            R"({"error":"busy","id":"x","result":false})");
}

TEST(RouterRefusal, OfNonsenseHasNoId) {
  InboundRequest request;
  request.topic = "cameras/CAM1/request";
  const std::vector<OutboundMessage> messages =
      RequestRouter::Refusal("cameras/CAM1", request, "busy");
  EXPECT_THAT(Topics(messages), ElementsAre("cameras/CAM1/response"));
  EXPECT_EQ(messages.at(0).payload, R"({"error":"busy","result":false})");
}

}  // namespace
}  // namespace agent
