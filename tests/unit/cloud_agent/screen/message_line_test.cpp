#include "cloud_agent/screen/message_line.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tarvex/base64.h"

namespace agent {
namespace {

Json::Value PlatePayload(const std::string& license) {
  Json::Value payload;
  Json::Value& plate = payload["AlarmInfoPlate"]["result"]["PlateResult"];
  plate["license"] = tarvex::Base64::Encode(license);
  plate["confidence"] = 97;
  plate["imagePath"] = tarvex::Base64::Encode("http://camera/1_full.jpg");
  return payload;
}

TEST(MessageDescription, OfAResultShowsPlateConfidenceAndPicture) {
  EXPECT_EQ(DescribeMessage("ivs_result", PlatePayload("ABC123"), 11),
            "ivs_result tag 11 plate ABC123 confidence 97 picture http://camera/1_full.jpg");
}

TEST(MessageDescription, OfTheLastResultShowsTheSame) {
  EXPECT_EQ(DescribeMessage("get_last_result", PlatePayload("X"), 26),
            "get_last_result tag 26 plate X confidence 97 picture http://camera/1_full.jpg");
}

TEST(MessageDescription, OfAResultWithoutAPictureLeavesItOut) {
  Json::Value payload = PlatePayload("X");
  payload["AlarmInfoPlate"]["result"]["PlateResult"].removeMember("imagePath");
  EXPECT_EQ(DescribeMessage("ivs_result", payload, 16), "ivs_result tag 16 plate X confidence 97");
}

TEST(MessageDescription, KeepsControlCharactersFromTheTerminal) {
  EXPECT_EQ(DescribeMessage("ivs_result", PlatePayload("A\033[2J\nB"), 11).substr(0, 33),
            "ivs_result tag 11 plate A?[2J?B c");
}

TEST(MessageDescription, OfOtherMessagesShowsTheirPayload) {
  Json::Value payload;
  payload["body"]["offline_record"] = 3;
  EXPECT_EQ(DescribeMessage("offline_record", payload, 17),
            R"(offline_record tag 17 {"body":{"offline_record":3}})");
}

TEST(MessageDescription, CutsALongPayloadBetweenCharacters) {
  const std::string description =
      DescribeMessage("x", Json::Value("a" + std::string(98, 'b') + "\xC3\xBC\xC3\xBC"), 1);
  EXPECT_LE(description.size(), 120U);
  EXPECT_THAT(description,
              ::testing::MatchesRegex("x tag 1 \"ab+\\.\\.\\.|x tag 1 \"ab+.u00fc?\\.\\.\\."));
}

TEST(MessageDescription, SurvivesPayloadsOfAnyShape) {
  EXPECT_EQ(DescribeMessage("x", Json::Value(), 1), "x tag 1 null");
  Json::Value payload;
  payload["AlarmInfoPlate"]["result"]["PlateResult"]["license"] = 5;
  payload["AlarmInfoPlate"]["result"]["PlateResult"]["confidence"] = "high";
  EXPECT_EQ(DescribeMessage("x", payload, 1), "x tag 1 plate ");
  payload["AlarmInfoPlate"] = "none";
  EXPECT_EQ(DescribeMessage("x", payload, 1), R"(x tag 1 {"AlarmInfoPlate":"none"})");
}

TEST(Fates, HaveATextEach) {
  EXPECT_STREQ(FateText(Fate::kLinkDown), "not sent: link down");
  EXPECT_STREQ(FateText(Fate::kLinkLost), "not acknowledged: link lost");
  EXPECT_STREQ(FateText(Fate::kOfflineBusy),
               "dropped: another re-delivery is not acknowledged yet");
  EXPECT_STREQ(FateText(Fate::kBacklogFull), "dropped: too many messages are not acknowledged yet");
  EXPECT_STREQ(FateText(Fate::kUnheard), "heard by nobody");
  EXPECT_STREQ(FateText(Fate::kRefusedByBroker), "refused by the broker");
  EXPECT_STREQ(FateText(Fate::kNotPublishable), "dropped: cannot be published");
}

}  // namespace
}  // namespace agent
