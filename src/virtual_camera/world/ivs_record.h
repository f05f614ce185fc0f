// The 552-byte record of one recognised plate, as it goes over the bus.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace virtual_camera {

/// A rectangle in the full picture, in pixels.
struct PixelRect {
  int32_t left = 0;
  int32_t top = 0;
  int32_t right = 0;
  int32_t bottom = 0;
};

/// Little-endian, naturally aligned. Texts end with a NUL inside their field.
struct IvsRecord {
  char license[16] = {};
  char color_value[8] = {};  ///< the plate's colour, hexadecimal
  int32_t color_type = 0;
  int32_t type = 0;
  int32_t confidence = 0;
  int32_t bright = 0;
  int32_t direction = 0;
  PixelRect plate;
  int32_t time_used = 0;  ///< of the recognition, ms
  uint32_t sec = 0;       ///< of the capture, since 1970
  uint32_t usec = 0;
  uint32_t trigger_type = 0;
  uint8_t car_bright = 0;
  uint8_t car_color = 0;
  uint8_t reserved_78[2] = {};
  uint32_t plate_id = 0;
  uint8_t second = 0;  ///< of the capture, local calendar, as the next five
  uint8_t minute = 0;
  uint8_t hour = 0;
  uint8_t day = 0;
  uint8_t month = 0;
  uint8_t reserved_89[3] = {};
  uint32_t year = 0;
  uint8_t reserved_96[5] = {};
  uint8_t plate_true_width = 0;
  uint8_t plate_distance = 0;
  uint8_t is_fake_plate = 0;
  PixelRect car;
  uint8_t brand = 0;
  uint8_t brand_type = 0;
  uint16_t brand_year = 0;
  uint8_t reserved_124[20] = {};
  uint8_t license_ext_type = 0;
  uint8_t reserved_145[151] = {};
  char full_path[128] = {};
  char clip_path[128] = {};
};

constexpr size_t kIvsRecordSize = 552;
/// The bus topic on which it is announced.
constexpr char kResultTopic[] = "BUS_SRV_IVS_RESULT";
/// A record of the offline store: the result, and four bytes of its delivery status.
constexpr size_t kOfflineRecordSize = 556;
/// Longest text that fits a field with its NUL.
constexpr size_t kMaxPlateLength = 15;
constexpr size_t kMaxPathLength = 127;

static_assert(__BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__, "records are written as they lie");
static_assert(sizeof(IvsRecord) == kIvsRecordSize);
static_assert(offsetof(IvsRecord, color_value) == 16);
static_assert(offsetof(IvsRecord, color_type) == 24);
static_assert(offsetof(IvsRecord, type) == 28);
static_assert(offsetof(IvsRecord, confidence) == 32);
static_assert(offsetof(IvsRecord, bright) == 36);
static_assert(offsetof(IvsRecord, direction) == 40);
static_assert(offsetof(IvsRecord, plate) == 44);
static_assert(offsetof(IvsRecord, time_used) == 60);
static_assert(offsetof(IvsRecord, sec) == 64);
static_assert(offsetof(IvsRecord, usec) == 68);
static_assert(offsetof(IvsRecord, trigger_type) == 72);
static_assert(offsetof(IvsRecord, car_bright) == 76);
static_assert(offsetof(IvsRecord, car_color) == 77);
static_assert(offsetof(IvsRecord, plate_id) == 80);
static_assert(offsetof(IvsRecord, second) == 84);
static_assert(offsetof(IvsRecord, minute) == 85);
static_assert(offsetof(IvsRecord, hour) == 86);
static_assert(offsetof(IvsRecord, day) == 87);
static_assert(offsetof(IvsRecord, month) == 88);
static_assert(offsetof(IvsRecord, year) == 92);
static_assert(offsetof(IvsRecord, plate_true_width) == 101);
static_assert(offsetof(IvsRecord, plate_distance) == 102);
static_assert(offsetof(IvsRecord, is_fake_plate) == 103);
static_assert(offsetof(IvsRecord, car) == 104);
static_assert(offsetof(IvsRecord, brand) == 120);
static_assert(offsetof(IvsRecord, brand_type) == 121);
static_assert(offsetof(IvsRecord, brand_year) == 122);
static_assert(offsetof(IvsRecord, license_ext_type) == 144);
static_assert(offsetof(IvsRecord, full_path) == 296);
static_assert(offsetof(IvsRecord, clip_path) == 424);

/// Puts a text into a field of a record, cut so that its NUL fits.
template <size_t kSize>
void SetText(char (&field)[kSize], const std::string& text) {
  const size_t length = text.copy(field, kSize - 1);
  field[length] = '\0';
}

/// The record's bytes as they go over the bus.
std::string RecordBytes(const IvsRecord& record);

/// The record of exactly 552 bytes; fewer leave the rest zero, more are not looked at.
IvsRecord RecordFromBytes(const std::string& bytes);

/// A text field that may lack its NUL, never read past its end.
template <size_t kSize>
std::string GetText(const char (&field)[kSize]) {
  const std::string whole(field, kSize);
  return whole.substr(0, whole.find('\0'));
}

}  // namespace virtual_camera
