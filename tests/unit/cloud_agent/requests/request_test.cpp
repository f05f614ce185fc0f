#include "cloud_agent/requests/request.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "json_text.h"

namespace agent {
namespace {

using ::testing::ElementsAre;

const Topics kTopics = {"cameras/CAM1", "my"};

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

/// "code: text"; empty where nothing is wrong.
std::string ErrorOf(const Request& request) {
  return request.error ? request.error.code + ": " + request.error.text : "";
}

std::string ErrorOf(const std::string& payload, const std::string& name = "get_sn") {
  return ErrorOf(Read(payload, name));
}

/// What is wrong with a good request that has one more member.
std::string ErrorWith(const std::string& member) {
  return ErrorOf(R"({"version":"1.0","payload":{},)" + member + "}");
}

TEST(RequestReading, TakesNameVersionAndPayloadAsTheyAre) {
  const Request request = Read(R"({"id":"r1","version":"","payload":[1]})", "gpio_out");
  EXPECT_EQ(ErrorOf(request), "");
  EXPECT_EQ(request.name, "gpio_out");
  EXPECT_EQ(request.id, Json::Value("r1"));
  EXPECT_EQ(request.version, "");
  EXPECT_EQ(Text(request.payload), "[1]");
  EXPECT_EQ(request.idempotency_key, "");
  EXPECT_FALSE(request.expires_at);
}

TEST(RequestReading, NamesWhatIsWrong) {
  EXPECT_EQ(ErrorOf(""), "not_json: the request is empty");
  EXPECT_EQ(ErrorOf("{"), "not_json: the request is not JSON");
  EXPECT_EQ(ErrorOf("[]"), "not_json: the request is not a JSON object");
  EXPECT_EQ(ErrorOf(R"({"payload":{}})"), "wrong_version: \"version\" is missing");
  EXPECT_EQ(ErrorOf(R"({"version":1.0,"payload":{}})"), "wrong_version: \"version\" is not a text");
  EXPECT_EQ(ErrorOf(R"({"version":"1.0"})"), "no_payload: \"payload\" is missing");
  for (const char* name : {"GET_SN", "get_sn/x", ""}) {
    EXPECT_EQ(ErrorOf(R"({"version":"1.0","payload":{}})", name),
              "unknown_name: unknown request \"" + std::string(name) + "\"");
  }
  EXPECT_EQ(ErrorWith(R"("id":[])"),
            "bad_member: \"id\" is neither a number nor a text of at most 256 bytes");
}

TEST(RequestReading, KeepsTheIdOfWhatIsMalformedAsFarAsItCanBeRead) {
  EXPECT_EQ(Read(R"({"id":"x","payload":{}})").id, Json::Value("x"));
  EXPECT_EQ(Read(R"({"id":7,"version":"1.0","payl)").id, Json::Value(7));
  EXPECT_TRUE(Read(R"({"version":"1.0","payl)").id.isNull());
  EXPECT_TRUE(Read(R"({"payload":{"id":7},)").id.isNull());
}

TEST(RequestReading, LooksOfWhatIsTooLargeAtTheIdOnly) {
  const std::string error = "too_large: the request has 201 bytes, more than the 200 allowed";
  EXPECT_EQ(ErrorOf(std::string(201, ' ')), error);
  InboundRequest beginning = Inbound("get_sn", R"({"id":"x","payload":{"body":"aaaa)");
  beginning.size = 201;
  EXPECT_EQ(ErrorOf(Read(beginning)), error);
  EXPECT_EQ(Read(beginning).id, Json::Value("x"));
  const std::string fits = R"({"version":"1.0","payload":{}})";
  EXPECT_EQ(ErrorOf(fits + std::string(200 - fits.size(), ' ')), "");
}

TEST(RequestReading, KeepsNoIdWithoutBounds) {
  const Request request = Read(
      Inbound("get_sn", R"({"id":")" + std::string(257, 'x') + R"(","version":"1.0"})"), 100000);
  EXPECT_EQ(request.error.code, "bad_member");
  EXPECT_TRUE(request.id.isNull());
}

TEST(RequestReading, RefusesWhatIsRetained) {
  InboundRequest inbound = Inbound("get_sn", R"({"id":"x","version":"1.0","payload":{}})");
  inbound.retained = true;
  EXPECT_EQ(ErrorOf(Read(inbound)), "retained: retained requests are not carried out");
}

TEST(RequestReading, TakesDeepNestingForNonsense) {
  EXPECT_EQ(ErrorOf(Read(Inbound("get_sn", std::string(100000, '[')), 1000000)),
            "not_json: the request is not JSON");
}

TEST(RequestReading, TakesTheEarlierOfTwoExpiries) {
  InboundRequest inbound = Inbound("get_sn", R"({"version":"1.0","payload":{},"expires_ms":1500})");
  inbound.received_at += std::chrono::seconds(100);
  EXPECT_EQ(Read(inbound).expires_at, inbound.received_at + std::chrono::milliseconds(1500));
  inbound.expires_in = std::chrono::seconds(1);
  EXPECT_EQ(Read(inbound).expires_at, inbound.received_at + std::chrono::seconds(1));
  inbound.expires_in = std::chrono::seconds(2);
  EXPECT_EQ(Read(inbound).expires_at, inbound.received_at + std::chrono::milliseconds(1500));
}

TEST(RequestReading, RefusesAnExpiryThatIsNone) {
  for (const char* expiry : {"-1", "86400001", "1.5", "\"5\"", "null"}) {
    EXPECT_EQ(ErrorWith(R"("expires_ms":)" + std::string(expiry)),
              "bad_member: \"expires_ms\" is no number of milliseconds from 0 to 86400000")
        << expiry;
  }
  EXPECT_EQ(ErrorWith(R"("expires_ms":0)"), "");
}

TEST(RequestReading, RefusesAKeyThatIsNone) {
  for (const std::string& key : {std::string("5"), std::string("\"\""), std::string("null"),
                                 '"' + std::string(129, 'k') + '"'}) {
    EXPECT_EQ(ErrorOf(Read(Inbound("get_sn", R"({"version":"1.0","payload":{},)"
                                             R"("idempotency_key":)" +
                                                 key + "}"),
                           1000)),
              "bad_member: \"idempotency_key\" is not a text of 1 to 128 bytes")
        << key;
  }
  EXPECT_EQ(Read(R"({"version":"1.0","payload":{},"idempotency_key":"k"})").idempotency_key, "k");
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

TEST(ResponseTopic, IsAllowedAmongTheCamerasOwnResponsesAndBelowTheResponseRootOnly) {
  for (const char* topic :
       {"my", "my/", "my2/answers", "other/answers", "cameras2/x", "cameras/CAM1/response/",
        "cameras", "cameras/CAM1/message/ivs_result", "cameras/CAM1/status",
        "cameras/CAM2/response/get_sn", "cameras/CAM1/response"}) {
    EXPECT_THAT(TopicsOf(ResponsesWith(topic)), ElementsAre("cameras/CAM1/response/get_sn"))
        << topic;
  }
  EXPECT_THAT(TopicsOf(ResponsesWith("cameras/CAM1/response/mine")),
              ElementsAre("cameras/CAM1/response/get_sn", "cameras/CAM1/response/mine"));
}

std::string ErrorOfResponseTopic(const std::string& response_topic,
                                 const std::string& response_root) {
  InboundRequest inbound = Inbound("get_sn", R"({"id":"x","version":"1.0","payload":{}})");
  inbound.response_topic = response_topic;
  const Request request = ReadRequest(inbound, {"cameras/CAM1", response_root}, {"get_sn"}, 200);
  EXPECT_EQ(request.id, Json::Value("x"));
  return ErrorOf(request);
}

TEST(ResponseTopic, ThatIsNotAllowedIsAnErrorThatSaysWhatIs) {
  EXPECT_EQ(ErrorOfResponseTopic("my/answers", ""),
            "bad_response_topic: the response topic \"my/answers\" is no topic below "
            "cameras/CAM1/response/; the agent's --response-root allows others");
  EXPECT_EQ(ErrorOfResponseTopic("your/answers", "my"),
            "bad_response_topic: the response topic \"your/answers\" is no topic below "
            "cameras/CAM1/response/ or, as the agent's --response-root says, my/");
  EXPECT_NE(ErrorOfResponseTopic("my/#", "my"), "");
  EXPECT_NE(ErrorOfResponseTopic(std::string("my/\0", 4), "my"), "");
  EXPECT_NE(ErrorOfResponseTopic("/answers", ""), "");
}

TEST(ResponseTopic, ThatIsAllowedIsNoError) {
  EXPECT_EQ(ErrorOfResponseTopic("my/answers", "my"), "");
  EXPECT_EQ(ErrorOfResponseTopic("cameras/CAM1/response/mine", ""), "");
  EXPECT_EQ(ErrorOfResponseTopic("", ""), "");
}

TEST(RequestRefusal, EchoesTheIdAndSaysWhy) {
  EXPECT_EQ(
      Refusal(Inbound("get_sn", R"({"id":"x"})"), kTopics, {code::kBusy, "why"}).at(0).payload,
      R"({"code":"busy","error":"why","id":"x","result":false})");
}

TEST(RequestRefusal, OfNonsenseHasNoId) {
  InboundRequest inbound;
  inbound.topic = "cameras/CAM1/request";
  const std::vector<OutboundMessage> messages = Refusal(inbound, kTopics, {code::kBusy, "why"});
  EXPECT_THAT(TopicsOf(messages), ElementsAre("cameras/CAM1/response"));
  EXPECT_EQ(messages.at(0).payload, R"({"code":"busy","error":"why","result":false})");
}

}  // namespace
}  // namespace agent
