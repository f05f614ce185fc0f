// The binary records of the recognition service, as they travel on the bus:
// little-endian, natural alignment. docs/records.md describes them field by field.
//
// Texts end at a NUL. One that fills its field runs on into the next field, and at
// the most to the end of the record: read texts with RecordText only.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <type_traits>

namespace qex {

struct Rect {
  int32_t left;
  int32_t top;
  int32_t right;
  int32_t bottom;
};

/// The plate result proper: the head of every IVS_RESULT_PARAM, and never found
/// anywhere else.
struct TH_PlateResult {
  char license[16];
  char color_value[8];  ///< hexadecimal text
  int32_t color_type;
  int32_t type;
  int32_t confidence;
  int32_t bright;
  int32_t direction;
  Rect location;      ///< pixels
  int32_t time_used;  ///< bits 28 to 31 are flags
  uint32_t sec;       ///< capture time, seconds since 1970
  uint32_t usec;
  uint32_t trigger_type;
  uint8_t car_bright;
  uint8_t car_color;
  uint8_t reserved_78[2];
  uint32_t plate_id;
  uint8_t dec_sec;  ///< capture time, local calendar
  uint8_t dec_min;
  uint8_t dec_hour;
  uint8_t dec_day;
  uint8_t dec_mon;
  uint8_t reserved_89[3];
  uint32_t dec_year;
  uint8_t reserved_96[5];
  uint8_t plate_true_width;
  uint8_t plate_distance;
  uint8_t is_fake_plate;
  Rect car_location;  ///< pixels
  uint8_t car_brand;
  uint8_t car_type;
  uint16_t car_year;
};

/// One recognition result.
struct IVS_RESULT_PARAM {
  TH_PlateResult plate;
  uint8_t reserved_124[20];
  uint8_t license_ext_type;
  uint8_t reserved_145[151];
  char full_image_path[128];
  char clip_image_path[128];
};

/// One result as the store of undelivered results returns it.
struct IvsOfflineInfo {
  IVS_RESULT_PARAM result;
  uint8_t reserved_552[4];
};

/// One lane-control event.
struct IVS_EVENT_PARAM {
  char license[16];
  char color_type[32];
  char type[64];
  int32_t plate_true_width;  ///< 0 or less: no plate
  int32_t confidence;
  uint32_t uid;
  int32_t event_type;
  int32_t full_image_id;
  int32_t full_image_type;
  int32_t small_image_type;
  int32_t small_image_id;
  int32_t alg_chn;
  int32_t chn_id;
  uint8_t reserved_152[4];
  int32_t rule_id;
  int32_t crop_left;  ///< pixels
  int32_t crop_top;
  int32_t crop_width;
  int32_t crop_height;
  uint8_t second;  ///< local calendar
  uint8_t minute;
  uint8_t hour;
  uint8_t day;
  uint8_t month;
  uint8_t reserved_181[3];
  int32_t year;
};

#define STANDS_AT(record, field, offset) \
  static_assert(offsetof(record, field) == (offset), #record "::" #field " is at " #offset)
STANDS_AT(TH_PlateResult, license, 0);
STANDS_AT(TH_PlateResult, color_value, 16);
STANDS_AT(TH_PlateResult, color_type, 24);
STANDS_AT(TH_PlateResult, type, 28);
STANDS_AT(TH_PlateResult, confidence, 32);
STANDS_AT(TH_PlateResult, bright, 36);
STANDS_AT(TH_PlateResult, direction, 40);
STANDS_AT(TH_PlateResult, location, 44);
STANDS_AT(TH_PlateResult, time_used, 60);
STANDS_AT(TH_PlateResult, sec, 64);
STANDS_AT(TH_PlateResult, usec, 68);
STANDS_AT(TH_PlateResult, trigger_type, 72);
STANDS_AT(TH_PlateResult, car_bright, 76);
STANDS_AT(TH_PlateResult, car_color, 77);
STANDS_AT(TH_PlateResult, plate_id, 80);
STANDS_AT(TH_PlateResult, dec_sec, 84);
STANDS_AT(TH_PlateResult, dec_min, 85);
STANDS_AT(TH_PlateResult, dec_hour, 86);
STANDS_AT(TH_PlateResult, dec_day, 87);
STANDS_AT(TH_PlateResult, dec_mon, 88);
STANDS_AT(TH_PlateResult, dec_year, 92);
STANDS_AT(TH_PlateResult, plate_true_width, 101);
STANDS_AT(TH_PlateResult, plate_distance, 102);
STANDS_AT(TH_PlateResult, is_fake_plate, 103);
STANDS_AT(TH_PlateResult, car_location, 104);
STANDS_AT(TH_PlateResult, car_brand, 120);
STANDS_AT(TH_PlateResult, car_type, 121);
STANDS_AT(TH_PlateResult, car_year, 122);
static_assert(sizeof(TH_PlateResult) == 124, "TH_PlateResult is 124 bytes");
STANDS_AT(IVS_RESULT_PARAM, plate, 0);
STANDS_AT(IVS_RESULT_PARAM, license_ext_type, 144);
STANDS_AT(IVS_RESULT_PARAM, full_image_path, 296);
STANDS_AT(IVS_RESULT_PARAM, clip_image_path, 424);
static_assert(sizeof(IVS_RESULT_PARAM) == 552, "IVS_RESULT_PARAM is 552 bytes");
STANDS_AT(IvsOfflineInfo, result, 0);
static_assert(sizeof(IvsOfflineInfo) == 556, "IvsOfflineInfo is 556 bytes");
STANDS_AT(Rect, left, 0);
STANDS_AT(Rect, top, 4);
STANDS_AT(Rect, right, 8);
STANDS_AT(Rect, bottom, 12);
STANDS_AT(IVS_EVENT_PARAM, license, 0);
STANDS_AT(IVS_EVENT_PARAM, color_type, 16);
STANDS_AT(IVS_EVENT_PARAM, type, 48);
STANDS_AT(IVS_EVENT_PARAM, plate_true_width, 112);
STANDS_AT(IVS_EVENT_PARAM, confidence, 116);
STANDS_AT(IVS_EVENT_PARAM, uid, 120);
STANDS_AT(IVS_EVENT_PARAM, event_type, 124);
STANDS_AT(IVS_EVENT_PARAM, full_image_id, 128);
STANDS_AT(IVS_EVENT_PARAM, full_image_type, 132);
STANDS_AT(IVS_EVENT_PARAM, small_image_type, 136);
STANDS_AT(IVS_EVENT_PARAM, small_image_id, 140);
STANDS_AT(IVS_EVENT_PARAM, alg_chn, 144);
STANDS_AT(IVS_EVENT_PARAM, chn_id, 148);
STANDS_AT(IVS_EVENT_PARAM, rule_id, 156);
STANDS_AT(IVS_EVENT_PARAM, crop_left, 160);
STANDS_AT(IVS_EVENT_PARAM, crop_top, 164);
STANDS_AT(IVS_EVENT_PARAM, crop_width, 168);
STANDS_AT(IVS_EVENT_PARAM, crop_height, 172);
STANDS_AT(IVS_EVENT_PARAM, second, 176);
STANDS_AT(IVS_EVENT_PARAM, minute, 177);
STANDS_AT(IVS_EVENT_PARAM, hour, 178);
STANDS_AT(IVS_EVENT_PARAM, day, 179);
STANDS_AT(IVS_EVENT_PARAM, month, 180);
STANDS_AT(IVS_EVENT_PARAM, year, 184);
static_assert(sizeof(IVS_EVENT_PARAM) == 188, "IVS_EVENT_PARAM is 188 bytes");
#undef STANDS_AT
static_assert(__BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__, "the records are read in place");

/// The text at `offset` of a record: up to its NUL, at the most to the record's end.
template <class Record>
std::string RecordText(const Record& record, size_t offset) {
  static_assert(std::is_trivially_copyable<Record>::value, "a record is plain bytes");
  const char* text = reinterpret_cast<const char*>(&record) + offset;
  return std::string(text, strnlen(text, sizeof(Record) - offset));
}

/// The whole record that a plate result heads.
inline const IVS_RESULT_PARAM& WholeRecord(const TH_PlateResult& plate) {
  return reinterpret_cast<const IVS_RESULT_PARAM&>(plate);
}

}  // namespace qex
