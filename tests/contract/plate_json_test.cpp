// Every field of a recognition record in the published object.
#include <climits>

#include "adapter_test.h"

namespace {

class PlateJson : public AdapterTest {
 protected:
  Json::Value PlateResult(const std::string& record) {
    Deliver("BUS_SRV_IVS_RESULT", record);
    RunPosted();
    return PublishedPayload()["AlarmInfoPlate"]["result"]["PlateResult"];
  }
};

TEST_F(PlateJson, HoldsEveryFieldAtItsOffset) {
  Start();
  RecordBytes record;
  record.Text(0, "AB12CD").Text(16, "0x1F").Word(24, 1).Word(28, 2).Word(32, 93).Word(36, 4);
  record.Word(40, 5).Word(44, 6).Word(48, 7).Word(52, 8).Word(56, 9).Word(60, 10);
  record.Word(64, 1600000000).Word(68, 999999).Word(72, 13).Byte(76, 14).Byte(77, 15);
  record.Word(80, 17).Byte(84, 59).Byte(85, 58).Byte(86, 23).Byte(87, 31).Byte(88, 12);
  record.Word(92, 2026).Byte(101, 101).Byte(102, 102).Byte(103, 1);
  record.Word(104, 104).Word(108, 108).Word(112, 112).Word(116, 116);
  record.Byte(120, 120).Byte(121, 121).Word16(122, 2021).Byte(144, 144);
  record.Text(296, "/pic/full").Text(424, "/pic/clip");
  const Json::Value expected = Parsed(R"({
    "bright": 4, "carBright": 14, "carColor": 15,
    "car_brand": {"brand": 120, "type": 121, "year": 2021},
    "car_location": {"RECT": {"bottom": 116, "left": 104, "right": 112, "top": 108}},
    "clean_time": 10, "colorType": 1, "colorValue": 31, "confidence": 93, "direction": 5,
    "feature_code": true, "gioouts": [],
    "imageFragmentPath": "dXJsOjE2MDAwMDAwMDBfU04wMDAxXzE3XzFfY2xpcC5qcGc=",
    "imagePath": "dXJsOjE2MDAwMDAwMDBfU04wMDAxXzE3XzBfZnVsbC5qcGc=",
    "is_fake_plate": 1, "isoffline": 0, "license": "QUIxMkNE", "license_ext_type": 144,
    "location": {"RECT": {"bottom": 9, "left": 6, "right": 8, "top": 7}},
    "plate_distance": 102, "plate_true_width": 101, "plateid": 17,
    "timeStamp": {"Timeval": {"decday": 31, "dechour": 23, "decmin": 58, "decmon": 12,
      "decsec": 59, "decyear": 2026, "sec": 1600000000, "usec": 999999}},
    "timeUsed": 10, "triggerType": 13, "type": 2})");
  EXPECT_EQ(Compact(PlateResult(record)), Compact(expected));
  EXPECT_EQ(image_calls_, (std::vector<std::string>{"/pic/full 1600000000_SN0001_17_0_full.jpg",
                                                    "/pic/clip 1600000000_SN0001_17_1_clip.jpg"}));
}

TEST_F(PlateJson, TellsSignedFromUnsigned) {
  Start();
  const Json::Value plate = PlateResult(std::string(552, '\xFF'));
  for (const char* key : {"colorType", "type", "direction", "confidence", "bright", "timeUsed"}) {
    EXPECT_EQ(plate[key].type(), Json::intValue) << key;
    EXPECT_EQ(plate[key].asInt(), -1) << key;
  }
  for (const char* key : {"triggerType", "plateid"}) {
    EXPECT_EQ(plate[key].type(), Json::uintValue) << key;
    EXPECT_EQ(plate[key].asUInt(), 0xFFFFFFFFU) << key;
  }
  for (const char* key : {"sec", "usec", "decyear"}) {
    EXPECT_EQ(plate["timeStamp"]["Timeval"][key].asUInt(), 0xFFFFFFFFU) << key;
  }
  for (const char* key : {"carBright", "carColor", "license_ext_type", "plate_true_width",
                          "plate_distance", "is_fake_plate"}) {
    EXPECT_EQ(plate[key].type(), Json::intValue) << key;
    EXPECT_EQ(plate[key].asInt(), 255) << key;
  }
  EXPECT_EQ(plate["car_brand"]["year"].asInt(), 65535);
  EXPECT_EQ(plate["location"]["RECT"]["left"].asInt(), -1);
  EXPECT_EQ(plate["car_location"]["RECT"]["top"].asInt(), -1);
}

TEST_F(PlateJson, ReadsTheColourAsHexadecimal) {
  Start();
  const std::vector<std::pair<std::string, int>> rows = {
      {"ff", 255}, {"zz", 0},  {"0x10", 16}, {"1g", 1},
      {"", 0},     {"-1", -1}, {"  a", 10},  {"7fffffff", 0x7fffffff}};
  for (const auto& [text, value] : rows) {
    EXPECT_EQ(PlateResult(RecordBytes().Text(16, text))["colorValue"].asInt(), value) << text;
    adapter_->OnMessagePublished(11);
    BusHeard();
  }
}

TEST_F(PlateJson, KeepsTheLowBitsOfAColourThatALongHoldsAndSaturatesOnANarrowOne) {
  Start();
  struct Row {
    const char* text;
    int wide;    // where a long has 64 bits
    int narrow;  // where it has 32
  };
  for (const Row& row : {Row{"ffffffff", -1, INT_MAX}, Row{"80000000", INT_MIN, INT_MAX},
                         Row{"123456789", 0x23456789, INT_MAX}, Row{"-80000001", INT_MAX, INT_MIN},
                         Row{"7fffffffffffffff", -1, INT_MAX}, Row{"ffffffffffffffff", -1, INT_MAX},
                         Row{"-ffffffffffffffff", 0, INT_MIN}}) {
    const Json::Value plate = PlateResult(RecordBytes().Text(16, row.text));
    EXPECT_EQ(plate["colorValue"].asInt(), sizeof(long) == 8 ? row.wide : row.narrow) << row.text;
    adapter_->OnMessagePublished(11);
    BusHeard();
  }
}

TEST_F(PlateJson, ClearsTheFlagsOfTheTimeInOnePlaceOnly) {
  Start();
  const Json::Value plate = PlateResult(RecordBytes().Word(60, 0x30000005));
  EXPECT_EQ(plate["clean_time"].asInt(), 5);
  EXPECT_EQ(plate["timeUsed"].asInt(), 805306373);
  EXPECT_EQ(LoggedBy("PackPlateLicenseInfo", 6, "Pack Antuo Clean Time:805306373."), 1U);
}

TEST_F(PlateJson, PublishesANegativeTimeAsItIs) {
  Start();
  const Json::Value plate = PlateResult(RecordBytes().Word(60, 0xF0000010));
  EXPECT_EQ(plate["timeUsed"].asInt(), -268435440);
  EXPECT_EQ(plate["clean_time"].asInt(), 16);
}

TEST_F(PlateJson, LogsTheEncodedPlate) {
  Start();
  PlateResult(RecordBytes().Text(0, "AB12CD"));
  EXPECT_EQ(LoggedBy("GetPlateInfoJson", 6, "plate:QUIxMkNE"), 1U);
}

TEST_F(PlateJson, EncodesTheRawBytesOfThePlate) {
  Start();
  EXPECT_EQ(PlateResult(RecordBytes().Text(0, "\xC3\xA9\x01\xFF"))["license"], "w6kB/w==");
  adapter_->OnMessagePublished(11);
  BusHeard();
  EXPECT_EQ(PlateResult(RecordBytes())["license"], "");
}

TEST_F(PlateJson, LetsAPlateTextWithoutAnEndRunOnIntoTheColour) {
  Start();
  const Json::Value plate = PlateResult(RecordBytes().Text(0, "0123456789ABCDEF").Text(16, "ff"));
  EXPECT_EQ(plate["license"], "MDEyMzQ1Njc4OUFCQ0RFRmZm");
  EXPECT_EQ(plate["colorValue"].asInt(), 255);
}

TEST_F(PlateJson, NeverReadsPastTheRecord) {
  Start();
  image_calls_.clear();
  const Json::Value plate = PlateResult(std::string(552, 'A'));
  EXPECT_EQ(plate["license"].asString().size(), 736U);  // 552 bytes, encoded
  ASSERT_EQ(image_calls_.size(), 2U);
  EXPECT_EQ(image_calls_[0].find(' '), 256U);
  EXPECT_EQ(image_calls_[1].find(' '), 128U);
}

TEST_F(PlateJson, NumbersPicturesThroughAllResults) {
  Start();
  PlateResult(RecordBytes().Word(64, 1).PlateId(1));
  PlateResult(RecordBytes().Word(64, 2).PlateId(4294967295U));
  EXPECT_EQ(image_calls_,
            (std::vector<std::string>{" 1_SN0001_1_0_full.jpg", " 1_SN0001_1_1_clip.jpg",
                                      " 2_SN0001_4294967295_2_full.jpg",
                                      " 2_SN0001_4294967295_3_clip.jpg"}));
}

TEST_F(PlateJson, HasNoPicturesWithoutAnImageFunction) {
  image_func_ = nullptr;
  Start();
  const Json::Value plate = PlateResult(RecordBytes().Text(296, "/pic/full"));
  EXPECT_FALSE(plate.isMember("imagePath"));
  EXPECT_FALSE(plate.isMember("imageFragmentPath"));
}

TEST_F(PlateJson, PublishesAnEmptyReferenceAsAnEmptyText) {
  image_func_ = [](const std::string&, const std::string&) { return std::string(); };
  Start();
  const Json::Value plate = PlateResult(RecordBytes());
  EXPECT_EQ(plate["imagePath"], "");
  EXPECT_EQ(plate["imageFragmentPath"], "");
}

}  // namespace
