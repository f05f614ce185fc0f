#include "virtual_camera/world/ivs_record_fields.h"

#include <cstdint>
#include <cstring>

#include "virtual_camera/world/ivs_record.h"

namespace virtual_camera {

namespace {

using Kind = IvsField::Kind;

template <class Number>
std::string NumberAt(const std::string& record, size_t offset) {
  Number number{};
  std::memcpy(&number, record.data() + offset, sizeof(number));
  return std::to_string(number);
}

}  // namespace

const std::vector<IvsField>& IvsFields() {
  using R = IvsRecord;
  static const std::vector<IvsField> fields = {
      {offsetof(R, license), sizeof(R::license), Kind::kText, "license"},
      {offsetof(R, color_value), sizeof(R::color_value), Kind::kText, "colorValue"},
      {offsetof(R, color_type), 4, Kind::kInt32, "colorType"},
      {offsetof(R, type), 4, Kind::kInt32, "type"},
      {offsetof(R, confidence), 4, Kind::kInt32, "confidence"},
      {offsetof(R, bright), 4, Kind::kInt32, "bright"},
      {offsetof(R, direction), 4, Kind::kInt32, "direction"},
      {offsetof(R, plate.left), 4, Kind::kInt32, "location left"},
      {offsetof(R, plate.top), 4, Kind::kInt32, "location top"},
      {offsetof(R, plate.right), 4, Kind::kInt32, "location right"},
      {offsetof(R, plate.bottom), 4, Kind::kInt32, "location bottom"},
      {offsetof(R, time_used), 4, Kind::kInt32, "timeUsed"},
      {offsetof(R, sec), 4, Kind::kUint32, "sec"},
      {offsetof(R, usec), 4, Kind::kUint32, "usec"},
      {offsetof(R, trigger_type), 4, Kind::kUint32, "triggerType"},
      {offsetof(R, car_bright), 1, Kind::kUint8, "carBright"},
      {offsetof(R, car_color), 1, Kind::kUint8, "carColor"},
      {offsetof(R, reserved_78), sizeof(R::reserved_78), Kind::kReserved, "reserved"},
      {offsetof(R, plate_id), 4, Kind::kUint32, "plateid"},
      {offsetof(R, second), 1, Kind::kUint8, "decsec"},
      {offsetof(R, minute), 1, Kind::kUint8, "decmin"},
      {offsetof(R, hour), 1, Kind::kUint8, "dechour"},
      {offsetof(R, day), 1, Kind::kUint8, "decday"},
      {offsetof(R, month), 1, Kind::kUint8, "decmon"},
      {offsetof(R, reserved_89), sizeof(R::reserved_89), Kind::kReserved, "reserved"},
      {offsetof(R, year), 4, Kind::kUint32, "decyear"},
      {offsetof(R, reserved_96), sizeof(R::reserved_96), Kind::kReserved, "reserved"},
      {offsetof(R, plate_true_width), 1, Kind::kUint8, "plate_true_width"},
      {offsetof(R, plate_distance), 1, Kind::kUint8, "plate_distance"},
      {offsetof(R, is_fake_plate), 1, Kind::kUint8, "is_fake_plate"},
      {offsetof(R, car.left), 4, Kind::kInt32, "car_location left"},
      {offsetof(R, car.top), 4, Kind::kInt32, "car_location top"},
      {offsetof(R, car.right), 4, Kind::kInt32, "car_location right"},
      {offsetof(R, car.bottom), 4, Kind::kInt32, "car_location bottom"},
      {offsetof(R, brand), 1, Kind::kUint8, "car_brand.brand"},
      {offsetof(R, brand_type), 1, Kind::kUint8, "car_brand.type"},
      {offsetof(R, brand_year), 2, Kind::kUint16, "car_brand.year"},
      {offsetof(R, reserved_124), sizeof(R::reserved_124), Kind::kReserved, "reserved"},
      {offsetof(R, license_ext_type), 1, Kind::kUint8, "license_ext_type"},
      {offsetof(R, reserved_145), sizeof(R::reserved_145), Kind::kReserved, "reserved"},
      {offsetof(R, full_path), sizeof(R::full_path), Kind::kText, "imagePath"},
      {offsetof(R, clip_path), sizeof(R::clip_path), Kind::kText, "imageFragmentPath"},
  };
  return fields;
}

std::string IvsFieldValue(const IvsField& field, const std::string& record) {
  switch (field.kind) {
    case Kind::kText: {
      const std::string whole = record.substr(field.offset, field.size);
      return whole.substr(0, whole.find('\0'));
    }
    case Kind::kInt32:
      return NumberAt<int32_t>(record, field.offset);
    case Kind::kUint32:
      return NumberAt<uint32_t>(record, field.offset);
    case Kind::kUint16:
      return NumberAt<uint16_t>(record, field.offset);
    case Kind::kUint8:
      return NumberAt<uint8_t>(record, field.offset);
    case Kind::kReserved:
      break;
  }
  return "";
}

}  // namespace virtual_camera
