#include "cloud_agent/requests.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "json_text.h"

namespace agent {
namespace {

using ::testing::ElementsAre;

const Topics kTopics = {"cameras", "cameras/CAM1"};

InboundRequest Inbound(const std::string& name, const std::string& payload) {
  InboundRequest inbound;
  inbound.topic = "cameras/CAM1/request/" + name;
  inbound.payload = payload;
  inbound.size = payload.size();
  return inbound;
}

Request Read(const InboundRequest& inbound, std::size_t max_bytes = 200) {
  return ReadRequest(inbound, kTopics, {"get_sn", "gpio_out"}, max_bytes);
}

Request Read(const std::string& payload, const std::string& name = "get_sn") {
  return Read(Inbound(name, payload));
}

std::string Text(const Json::Value& value) {
  std::string text;
  Json::Json2String(value, text);
  return text;
}

/// The response to a request that was carried out.
std::string ResponseTo(const std::string& payload) {
  const Request request = Read(payload);
  EXPECT_EQ(request.error, "");
  return Text(ResponseJson(request, true, Json::Value("r")));
}

std::string ErrorOf(const std::string& payload, const std::string& name = "get_sn") {
  return Read(payload, name).error;
}

TEST(RequestReading, TakesNameVersionAndPayloadAsTheyAre) {
  const Request request = Read(R"({"id":"r1","version":"","payload":[1]})", "gpio_out");
  EXPECT_EQ(request.error, "");
  EXPECT_EQ(request.name, "gpio_out");
  EXPECT_EQ(request.id, Json::Value("r1"));
  EXPECT_EQ(request.version, "");
  EXPECT_EQ(Text(request.payload), "[1]");
}

TEST(RequestReading, NamesWhatIsWrong) {
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
}

TEST(RequestReading, KeepsTheIdOfAMalformedRequest) {
  EXPECT_EQ(Read(R"({"id":"x","payload":{}})").id, Json::Value("x"));
}

TEST(RequestReading, DoesNotLookAtWhatIsTooLarge) {
  EXPECT_EQ(ErrorOf(std::string(201, ' ')), "the request has 201 bytes, more than the 200 allowed");
  const std::string fits = R"({"version":"1.0","payload":{}})";
  EXPECT_EQ(ErrorOf(fits + std::string(200 - fits.size(), ' ')), "");
}

TEST(RequestReading, KeepsNoIdWithoutBounds) {
  const Request request = Read(
      Inbound("get_sn", R"({"id":")" + std::string(257, 'x') + R"(","version":"1.0"})"), 100000);
  EXPECT_NE(request.error, "");
  EXPECT_TRUE(request.id.isNull());
}

TEST(RequestReading, RefusesWhatIsRetained) {
  InboundRequest inbound = Inbound("get_sn", R"({"id":"x","version":"1.0","payload":{}})");
  inbound.retained = true;
  EXPECT_EQ(Read(inbound).error, "retained requests are not carried out");
}

TEST(RequestReading, TakesDeepNestingForNonsense) {
  EXPECT_EQ(Read(Inbound("get_sn", std::string(100000, '[')), 1000000).error,
            "the request is not JSON");
}

TEST(ResponseText, HasTheIdAsItCame) {
  EXPECT_EQ(ResponseTo(R"({"id":"r1","version":"1.0","payload":{}})"),
            R"({"id":"r1","response":"r","result":true})");
  EXPECT_EQ(ResponseTo(R"({"id":17,"version":"1.0","payload":{}})"),
            R"({"id":17,"response":"r","result":true})");
  EXPECT_EQ(ResponseTo(R"({"version":"1.0","payload":{}})"), R"({"response":"r","result":true})");
}

TEST(ResponseText, SaysWhenTheCameraRefuses) {
  EXPECT_EQ(
      Text(ResponseJson(Read(R"({"id":"x","version":"1.0","payload":{}})"), false, Json::Value())),
      R"({"error":"the camera refused or did not carry out the request",)"
      R"("id":"x","response":null,"result":false})");
}

TEST(ResponseText, SaysWhatWasWrongWithTheRequest) {
  EXPECT_EQ(Text(ResponseJson(Read(R"({"id":"x","payload":{}})"), false, Json::Value())),
            R"({"error":"\"version\" is missing","id":"x","result":false})");
}

std::vector<std::string> TopicsOf(const std::vector<OutboundMessage>& messages) {
  std::vector<std::string> topics;
  for (const OutboundMessage& message : messages) {
    topics.push_back(message.topic);
  }
  return topics;
}

std::vector<OutboundMessage> ResponsesWith(const std::string& response_topic) {
  InboundRequest inbound = Inbound("get_sn", "");
  inbound.response_topic = response_topic;
  inbound.has_correlation_data = true;
  inbound.correlation_data = std::string("\0c", 2);
  return Responses(inbound, kTopics, Json::Value("r"));
}

TEST(ResponseTopic, GetsTheSameResponseWithTheCorrelationData) {
  const std::vector<OutboundMessage> messages = ResponsesWith("my/answers");
  EXPECT_THAT(TopicsOf(messages), ElementsAre("cameras/CAM1/response/get_sn", "my/answers"));
  EXPECT_EQ(messages.at(1).payload, messages.at(0).payload);
  EXPECT_TRUE(messages.at(1).has_correlation_data);
  EXPECT_EQ(messages.at(1).correlation_data, std::string("\0c", 2));
  EXPECT_FALSE(messages.at(0).retain);
}

TEST(ResponseTopic, ThatIsTheUsualOneGetsItOnce) {
  EXPECT_THAT(TopicsOf(ResponsesWith("cameras/CAM1/response/get_sn")),
              ElementsAre("cameras/CAM1/response/get_sn"));
}

TEST(ResponseTopic, ThatNobodyCanPublishToIsLeftOut) {
  EXPECT_THAT(TopicsOf(ResponsesWith("my/#")), ElementsAre("cameras/CAM1/response/get_sn"));
  EXPECT_THAT(TopicsOf(ResponsesWith("$SYS/x")), ElementsAre("cameras/CAM1/response/get_sn"));
}

TEST(ResponseTopic, BelowTheRootIsAllowedAmongTheCamerasOwnResponsesOnly) {
  for (const char* topic : {"cameras", "cameras/CAM1/message/ivs_result", "cameras/CAM1/status",
                            "cameras/CAM2/response/get_sn", "cameras/CAM1/response"}) {
    EXPECT_THAT(TopicsOf(ResponsesWith(topic)), ElementsAre("cameras/CAM1/response/get_sn"))
        << topic;
  }
  EXPECT_THAT(TopicsOf(ResponsesWith("cameras/CAM1/response/mine")),
              ElementsAre("cameras/CAM1/response/get_sn", "cameras/CAM1/response/mine"));
  EXPECT_EQ(ResponsesWith("cameras2/x").size(), 2U);
}

TEST(RequestRefusal, EchoesTheIdAndSaysWhy) {
  EXPECT_EQ(Refusal(Inbound("get_sn", R"({"id":"x"})"), kTopics, "busy").at(0).payload,
            R"({"error":"busy","id":"x","result":false})");
}

TEST(RequestRefusal, OfNonsenseHasNoId) {
  InboundRequest inbound;
  inbound.topic = "cameras/CAM1/request";
  const std::vector<OutboundMessage> messages = Refusal(inbound, kTopics, "busy");
  EXPECT_THAT(TopicsOf(messages), ElementsAre("cameras/CAM1/response"));
  EXPECT_EQ(messages.at(0).payload, R"({"error":"busy","result":false})");
}

}  // namespace
}  // namespace agent
