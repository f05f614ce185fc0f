#include "virtual_camera/world/ivs_record.h"

#include <cstring>

#include <gtest/gtest.h>

namespace virtual_camera {
namespace {

template <class Number>
Number At(const std::string& bytes, size_t offset) {
  Number number;
  std::memcpy(&number, bytes.data() + offset, sizeof(number));
  return number;
}

TEST(IvsRecordBytes, AreFiveHundredAndFiftyTwo) {
  EXPECT_EQ(RecordBytes(IvsRecord{}), std::string(552, '\0'));
}

TEST(IvsRecordBytes, CarryThePlateAtTheBeginning) {
  IvsRecord record;
  SetText(record.license, "AB123CD");
  SetText(record.color_value, "F5F5F5");
  record.color_type = 3;
  record.type = 4;
  record.confidence = 97;
  record.bright = 120;
  record.direction = 2;
  const std::string bytes = RecordBytes(record);
  EXPECT_STREQ(bytes.c_str(), "AB123CD");
  EXPECT_STREQ(bytes.c_str() + 16, "F5F5F5");
  EXPECT_EQ(At<int32_t>(bytes, 24), 3);
  EXPECT_EQ(At<int32_t>(bytes, 28), 4);
  EXPECT_EQ(At<int32_t>(bytes, 32), 97);
  EXPECT_EQ(At<int32_t>(bytes, 36), 120);
  EXPECT_EQ(At<int32_t>(bytes, 40), 2);
}

TEST(IvsRecordBytes, CarryRectanglesFromLeftToBottom) {
  IvsRecord record;
  record.plate = {1, 2, 3, 4};
  record.car = {5, 6, 7, 8};
  const std::string bytes = RecordBytes(record);
  for (int i = 0; i < 4; ++i) {
    EXPECT_EQ(At<int32_t>(bytes, 44 + 4 * static_cast<size_t>(i)), 1 + i);
    EXPECT_EQ(At<int32_t>(bytes, 104 + 4 * static_cast<size_t>(i)), 5 + i);
  }
}

TEST(IvsRecordBytes, CarryTheTimeTwice) {
  IvsRecord record;
  record.time_used = 33;
  record.sec = 1700000000;
  record.usec = 999999;
  record.second = 1;
  record.minute = 2;
  record.hour = 3;
  record.day = 4;
  record.month = 5;
  record.year = 2026;
  const std::string bytes = RecordBytes(record);
  EXPECT_EQ(At<int32_t>(bytes, 60), 33);
  EXPECT_EQ(At<uint32_t>(bytes, 64), 1700000000U);
  EXPECT_EQ(At<uint32_t>(bytes, 68), 999999U);
  EXPECT_EQ(bytes.substr(84, 5), std::string("\1\2\3\4\5"));
  EXPECT_EQ(At<uint32_t>(bytes, 92), 2026U);
}

TEST(IvsRecordBytes, CarryTheRest) {
  IvsRecord record;
  record.trigger_type = 4;
  record.car_bright = 11;
  record.car_color = 12;
  record.plate_id = 0xFFFFFFFE;
  record.plate_true_width = 13;
  record.plate_distance = 14;
  record.is_fake_plate = 1;
  record.brand = 15;
  record.brand_type = 16;
  record.brand_year = 2020;
  record.license_ext_type = 17;
  SetText(record.full_path, "/data/1_full.jpg");
  SetText(record.clip_path, "/data/1_clip.jpg");
  const std::string bytes = RecordBytes(record);
  EXPECT_EQ(At<uint32_t>(bytes, 72), 4U);
  EXPECT_EQ(bytes.substr(76, 2), std::string("\13\14"));
  EXPECT_EQ(At<uint32_t>(bytes, 80), 0xFFFFFFFEU);
  EXPECT_EQ(bytes.substr(101, 3), std::string("\15\16\1"));
  EXPECT_EQ(bytes.substr(120, 2), std::string("\17\20"));
  EXPECT_EQ(At<uint16_t>(bytes, 122), 2020);
  EXPECT_EQ(bytes[144], 17);
  EXPECT_STREQ(bytes.c_str() + 296, "/data/1_full.jpg");
  EXPECT_STREQ(bytes.c_str() + 424, "/data/1_clip.jpg");
}

TEST(IvsRecordBytes, BecomeTheSameRecordAgain) {
  std::string bytes(552, '\0');
  for (size_t i = 0; i < bytes.size(); ++i) {
    bytes[i] = static_cast<char>(i * 7);
  }
  EXPECT_EQ(RecordBytes(RecordFromBytes(bytes)), bytes);
}

TEST(IvsRecordText, IsCutSoThatItsEndFits) {
  IvsRecord record;
  SetText(record.license, "0123456789ABCDEFGH");
  EXPECT_EQ(GetText(record.license), "0123456789ABCDE");
}

TEST(IvsRecordText, WithoutAnEndStopsWithItsField) {
  const IvsRecord record = RecordFromBytes(std::string(552, 'A'));
  EXPECT_EQ(GetText(record.clip_path), std::string(128, 'A'));
}

}  // namespace
}  // namespace virtual_camera
