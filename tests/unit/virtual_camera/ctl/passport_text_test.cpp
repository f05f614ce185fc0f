// What "camera_ctl trace" prints of the passports that it is given.
#include "virtual_camera/ctl/passport_text.h"

#include <gmock/gmock.h>

#include <sstream>

#include "desk_camera.h"
#include "tarvex/base64.h"
#include "virtual_camera/world/ivs_record_fields.h"

namespace virtual_camera {
namespace {

using ::testing::HasSubstr;
using ::testing::Not;

std::string Base64Of(const std::string& bytes) { return tarvex::Base64::Encode(bytes); }

Json::Value ResultPassport() {
  IvsRecord record;
  SetText(record.license, "AB123CD");
  record.confidence = 97;
  record.plate_id = 12;
  SetText(record.full_path, "/data/pictures/" + std::string(100, 'x') + "/12.jpg");
  Json::Value passport;
  passport["id"] = "result/CAM1/12";
  passport["name"] = "ivs_result";
  passport["state"] = "delivered";
  passport["plate"] = "AB123CD";
  passport["bus"]["topic"] = "BUS_SRV_IVS_RESULT";
  passport["bus"]["body"] = Base64Of(RecordBytes(record));
  passport["mqtt"][0]["topic"] = "cameras/CAM1/message/ivs_result";
  passport["mqtt"][0]["payload"] = R"({"tag":11,"payload":{"a":1}})";
  passport["steps"] = Parsed(R"([{"what":"stored","by":"camera","at_us":1700000000123000},
      {"what":"announced","by":"camera","at_us":1700000000123456,"note":"n"}])");
  return passport;
}

Json::Value RequestPassport() {
  return Parsed(R"({"id":"request/CAM1/1766-7","name":"gpio_out","state":"answered",
      "request":{"topic":"cameras/CAM1/request/gpio_out","payload":"{\"id\":\"1\"}",
                 "at_us":1700000000000000,"waited_us":250},
      "bus_requests":[{"queue":"EVS_GPIO_CONTROL","body":")" +
                Base64Of(Words({1, 2, 0x41424344})) + R"(","timeout_ms":300,
          "outcome":"answered","us":812,"at_us":1700000000001000,"reply":")" +
                Base64Of(R"({"state_code":200})") + R"("}],
      "response":{"topic":"cameras/CAM1/response/gpio_out","payload":"{\"result\":true}",
                  "at_us":1700000000003000,"us":3000}})");
}

TEST(PassportText, BeginsWithWhatItIsAndHowFarItCame) {
  const std::string text = PassportText(ResultPassport());
  EXPECT_EQ(text.substr(0, text.find('\n')),
            "result/CAM1/12  ivs_result  delivered  plate AB123CD");
}

TEST(PassportText, ShowsTheFieldsOfARecordWithOffsetBytesNameAndValue) {
  const std::string text = PassportText(ResultPassport());
  EXPECT_THAT(text, HasSubstr("BUS_SRV_IVS_RESULT, 552 bytes"));
  EXPECT_THAT(text,
              HasSubstr("  0       41 42 31 32 33 43 44 00 ..  license              AB123CD"));
  EXPECT_THAT(text, HasSubstr("  32      61 00 00 00                 confidence           97\n"));
  EXPECT_THAT(text, HasSubstr("  80      0c 00 00 00                 plateid              12\n"));
}

TEST(PassportText, ShowsTheFirst552BytesOfARecordOutOfTheStore) {
  Json::Value passport = ResultPassport();
  passport["bus"]["body"] = Base64Of(std::string(556, '\0'));
  EXPECT_THAT(PassportText(passport), HasSubstr("imageFragmentPath"));
}

TEST(PassportText, ShowsHowLongEachStepTook) {
  const std::string text = PassportText(ResultPassport());
  EXPECT_THAT(text, HasSubstr(".123                stored         camera"));
  EXPECT_THAT(text, HasSubstr(".123  0.456         announced      camera   n"));
}

TEST(PassportText, IndentsThePublishedJson) {
  EXPECT_THAT(
      PassportText(ResultPassport()),
      HasSubstr(
          "  {\n    \"payload\" : \n    {\n      \"a\" : 1\n    },\n    \"tag\" : 11\n  }\n"));
}

TEST(PassportText, ShowsARequestWithWhatWasAskedOnTheBusForIt) {
  const std::string text = PassportText(RequestPassport());
  EXPECT_THAT(text, HasSubstr("request: cameras/CAM1/request/gpio_out, waited 0.250 ms\n"));
  EXPECT_THAT(text, HasSubstr("12 bytes, timeout 300 ms\n"));
  EXPECT_THAT(
      text, HasSubstr("  0       01 00 00 00 02 00 00 00 44 43 42 41              ........DCBA\n"));
  EXPECT_THAT(text,
              HasSubstr("answered after 0.812 ms, 18 bytes\n  {\n    \"state_code\" : 200\n"));
  EXPECT_THAT(text, HasSubstr("response: cameras/CAM1/response/gpio_out, after 3.000 ms\n"));
}

TEST(PassportText, HasNoLineOfMoreThanAHundredColumns) {
  Json::Value passport = ResultPassport();
  passport["mqtt"][0]["payload"] = std::string(1000, 'y');
  std::istringstream lines(PassportText(passport) + PassportText(RequestPassport()));
  std::string line;
  while (std::getline(lines, line)) {
    EXPECT_LE(line.size(), kPassportColumns) << line;
  }
}

TEST(PassportText, GivesATerminalNoControlCharacters) {
  Json::Value passport = ResultPassport();
  passport["plate"] = "A\x1B[2J\xC2\x9B\xFF";
  passport["mqtt"][0]["payload"] = "\x1B[2J";
  EXPECT_THAT(PassportText(passport), Not(HasSubstr("\x1B")));
  EXPECT_THAT(PassportText(passport), HasSubstr("plate A?[2J??"));
}

TEST(PassportText, LeavesOutWhatIsMissingOrOfAnotherType) {
  const Json::Value odd = Parsed(R"({"id":7,"steps":{"a":1},"bus":[],"mqtt":[7],"request":"r",
      "bus_requests":[[]],"response":null,"plate":{},"copies":"two"})");
  EXPECT_NO_THROW(PassportText(odd));
  EXPECT_NO_THROW(PassportText(Json::Value(Json::objectValue)));
  EXPECT_NO_THROW(PassportListText(Parsed(R"([7,{},{"id":[]}])")));
}

TEST(PassportList, HasALineForEach) {
  const std::string text = PassportListText(Parsed(R"([
      {"id":"result/CAM1/12","name":"ivs_result","state":"delivered","at_us":0,"plate":"AB1"},
      {"id":"request/CAM1/1766-7","name":"gpio_out","state":"running","at_us":0}])"));
  EXPECT_THAT(text, HasSubstr("result/CAM1/12       delivered     ivs_result  AB1\n"));
  EXPECT_THAT(text, HasSubstr("request/CAM1/1766-7  running       gpio_out\n"));
}

TEST(FieldsOfARecord, CoverAllOfIt) {
  size_t end = 0;
  for (const IvsField& field : IvsFields()) {
    EXPECT_EQ(field.offset, end) << field.name;
    end = field.offset + field.size;
  }
  EXPECT_EQ(end, kIvsRecordSize);
}

TEST(FieldsOfARecord, HaveTheValuesOfTheRecord) {
  IvsRecord record;
  record.direction = -2;
  record.brand_year = 40000;
  record.is_fake_plate = 200;
  std::map<std::string, std::string> values;
  for (const IvsField& field : IvsFields()) {
    values[field.name] = IvsFieldValue(field, RecordBytes(record));
  }
  EXPECT_EQ(values["direction"], "-2");
  EXPECT_EQ(values["car_brand.year"], "40000");
  EXPECT_EQ(values["is_fake_plate"], "200");
}

}  // namespace
}  // namespace virtual_camera
