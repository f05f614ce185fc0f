// The file of a capture: what is written is read, and what is wrong is named.
#include "capture/capture.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sstream>

namespace {

using capture::Capture;
using testing::EndsWith;
using testing::StartsWith;

constexpr char kHeader[] =
    R"({"capture":"mqtt_adapter","version":1,"by":"hand","sn":"CAM1","start_us":7})";

Capture Read(const std::string& text) {
  std::istringstream file(text);
  return capture::ReadCapture(file, "FILE");
}

Capture ReadEvents(const std::string& lines) { return Read(kHeader + ("\n" + lines)); }

/// What is wrong with a file.
std::string Refused(const std::string& text) {
  try {
    Read(text);
  } catch (const std::runtime_error& error) {
    return error.what();
  }
  return "nothing";
}

/// What is wrong with a line behind the header, without the line's number.
std::string RefusedEvent(const std::string& line) {
  const std::string why = Refused(kHeader + ("\n" + line));
  EXPECT_THAT(why, StartsWith("FILE:2: "));
  return why.substr(why.find(": ") + 2);
}

Json::Value Members(const std::string& key, const Json::Value& value) {
  Json::Value members;
  members[key] = value;
  return members;
}

TEST(CaptureFile, GivesItsHeaderBackAsItWasWritten) {
  const Capture read = Read(capture::HeaderLine({"camera_ctl", "DESK0001", 1700000000000000}));
  EXPECT_EQ(read.header.by, "camera_ctl");
  EXPECT_EQ(read.header.sn, "DESK0001");
  EXPECT_EQ(read.header.start_us, 1700000000000000);
  EXPECT_TRUE(read.events.empty());
}

TEST(CaptureFile, GivesAnEventBackAsItWasWritten) {
  const Capture read = ReadEvents(capture::EventLine("link", 12, Members("up", true)) + "\n");
  ASSERT_EQ(read.events.size(), 1U);
  EXPECT_EQ(read.events[0]["event"], "link");
  EXPECT_EQ(read.events[0]["us"], 12);
  EXPECT_EQ(read.events[0]["up"], true);
}

TEST(CaptureFile, KeepsEveryByteOfABody) {
  const std::string bytes("\0\xff\n", 3);
  Json::Value members = Members("body", capture::Encoded(bytes));
  members["topic"] = "T";
  const Capture read = ReadEvents(capture::EventLine("message", 0, members));
  EXPECT_EQ(capture::Bytes(read.events.at(0), "body"), bytes);
}

TEST(CaptureFile, TellsAnEmptyReplyFromNone) {
  const Capture read = ReadEvents(
      "{\"us\":0,\"event\":\"bus_request\",\"queue\":\"Q\",\"body\":\"\",\"reply\":\"\"}\n"
      "{\"us\":1,\"event\":\"bus_request\",\"queue\":\"Q\",\"body\":\"\"}");
  EXPECT_TRUE(read.events.at(0).isMember("reply"));
  EXPECT_FALSE(read.events.at(1).isMember("reply"));
}

TEST(CaptureFile, HasAPayloadAsJsonOrAsBytes) {
  const Capture read = ReadEvents(
      "{\"us\":0,\"event\":\"request\",\"name\":\"n\",\"version\":\"1.0\",\"payload\":[1]}\n"
      "{\"us\":0,\"event\":\"request\",\"name\":\"n\",\"version\":\"1.0\",\"payload_base64\":"
      "\"Iv8i\"}");
  EXPECT_EQ(capture::Payload(read.events.at(0))[0], 1);
  EXPECT_EQ(capture::Payload(read.events.at(1)), "\xff");
}

TEST(CaptureFile, IsReadByTimeAndOtherwiseLineByLine) {
  const Capture read = ReadEvents(R"({"us":5,"event":"confirmed","tag":1}
{"us":3,"event":"confirmed","tag":2}
{"us":3,"event":"confirmed","tag":3})");
  EXPECT_EQ(read.events.at(0)["tag"], 2);
  EXPECT_EQ(read.events.at(1)["tag"], 3);
  EXPECT_EQ(read.events.at(2)["tag"], 1);
}

TEST(CaptureFile, ThatIsEmptyIsRefused) {
  EXPECT_EQ(Refused(""), "FILE cannot be read, or is empty");
}

TEST(CaptureFile, ThatIsNoCaptureIsRefused) {
  EXPECT_EQ(Refused("{}"), "FILE:1: a capture begins with {\"capture\":\"mqtt_adapter\",...}");
  EXPECT_EQ(Refused("\x7f"
                    "ELF"),
            "FILE:1: no JSON");
}

TEST(CaptureFile, OfAnotherVersionIsRefused) {
  EXPECT_EQ(Refused(R"({"capture":"mqtt_adapter","version":2})"),
            "FILE:1: this program reads version 1");
}

TEST(CaptureFile, WithoutASerialNumberIsRefused) {
  EXPECT_EQ(Refused(R"({"capture":"mqtt_adapter","version":1,"by":"hand","start_us":7})"),
            "FILE:1: \"sn\" is missing");
}

TEST(CaptureFile, NamesTheLineThatIsWrong) {
  EXPECT_EQ(Refused(kHeader + std::string("\n{\"us\":1,\"event\":\"link\",\"up\":true}\n{\"us\"")),
            "FILE:3: no JSON");
}

TEST(CaptureFile, NamesWhatIsWrongWithAnEvent) {
  EXPECT_EQ(RefusedEvent("[]"), "no JSON object");
  EXPECT_EQ(RefusedEvent(R"({"us":0,"event":"lunch"})"), "no such \"event\"");
  EXPECT_EQ(RefusedEvent(R"({"event":"link","up":true})"), "\"us\" is missing");
  EXPECT_EQ(RefusedEvent(R"({"us":-1,"event":"link","up":true})"),
            "\"us\" is not a whole number from 0 on");
  EXPECT_EQ(RefusedEvent(R"({"us":0,"event":"link","up":1})"), "\"up\" is not true or false");
  EXPECT_EQ(RefusedEvent(R"({"us":0,"event":"link","up":true,"note":1})"),
            "\"note\" has no meaning here");
  EXPECT_EQ(RefusedEvent(R"({"us":0,"event":"message","topic":"T","body":"%"})"),
            "\"body\" is not bytes as Base64");
}

TEST(CaptureFile, RefusesARequestWithoutExactlyOnePayload) {
  const std::string head = R"({"us":0,"event":"request","name":"n","version":"1.0")";
  const std::string why = "a request has \"payload\" or \"payload_base64\"";
  EXPECT_EQ(RefusedEvent(head + "}"), why);
  EXPECT_EQ(RefusedEvent(head + R"(,"payload":1,"payload_base64":"MQ=="})"), why);
  EXPECT_THAT(RefusedEvent(head + R"(,"payload_base64":"ew=="})"), EndsWith("not JSON as Base64"));
}

}  // namespace
