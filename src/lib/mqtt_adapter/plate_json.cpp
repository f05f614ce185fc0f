// One recognition result as the JSON object that the cloud receives. The mixed
// spelling of the keys is the published format.
#include <cstdlib>

#include "json_access.h"
#include "log.h"
#include "mqtt_adapter.h"
#include "protocol.h"
#include "styled_document.h"
#include "tarvex/base64.h"

namespace qex {
namespace {

/// Numbers the pictures of plates: one counter for the whole process, never reset.
uint32_t g_plate_image_counter = 0;

void PackRect(const Rect& rect, const Members& out) {
  out["bottom"] = rect.bottom;
  out["left"] = rect.left;
  out["right"] = rect.right;
  out["top"] = rect.top;
}

/// Uses up one number, also when the picture then fails.
std::string NextPictureName(const IVS_RESULT_PARAM& record, const std::string& sn,
                            const char* ending) {
  return std::to_string(record.plate.sec) + "_" + sn + "_" + std::to_string(record.plate.plate_id) +
         "_" + std::to_string(g_plate_image_counter++) + ending;
}

}  // namespace

void MQTTAdapter::PackPlateResult(IVS_RESULT_PARAM record, int isoffline, const Members& body) {
  GetDevInfoJson(body["AlarmInfoPlate"]);
  const Members result = body.Of("AlarmInfoPlate").Of("result");
  PackPlateLicenseInfo(&record, result, isoffline);
  const Members plate_result = result.Of("PlateResult");
  PackPlateTimestapInfo(&record.plate, plate_result);
  PackPlateDetailInfo(&record.plate, plate_result);
  PackPlateLocationInfo(&record.plate, plate_result);
  PackPlateExtInfo(&record.plate, plate_result);
  PackPlateImgInfo(&record, plate_result);
}

int MQTTAdapter::PackPlateLicenseInfo(const IVS_RESULT_PARAM* record, const Members& result,
                                      int isoffline) {
  const TH_PlateResult& plate = record->plate;
  const Members out = result.Of("PlateResult");
  Json::Value& outputs = out["gioouts"];
  if (outputs.isNull()) {
    outputs.resize(0);
  }
  out["colorType"] = plate.color_type;
  out["type"] = plate.type;
  out["direction"] = plate.direction;
  out["triggerType"] = plate.trigger_type;
  out["isoffline"] = isoffline != 0 ? 1 : 0;
  out["plateid"] = plate.plate_id;
  out["license"] = GetPlateInfoJson(record);
  out["license_ext_type"] = record->license_ext_type;
  out["clean_time"] = plate.time_used & 0x0FFFFFFF;
  // Deliberately the whole word here, the masked one in the JSON.
  ADAPTER_LOG(kLogInfo, "Pack Antuo Clean Time:%d.", plate.time_used);
  return kStateOk;
}

int MQTTAdapter::PackPlateTimestapInfo(const TH_PlateResult* plate, const Members& plate_result) {
  const Members time = plate_result.Of("timeStamp").Of("Timeval");
  time["decyear"] = plate->dec_year;
  time["decmon"] = plate->dec_mon;
  time["decday"] = plate->dec_day;
  time["dechour"] = plate->dec_hour;
  time["decmin"] = plate->dec_min;
  time["decsec"] = plate->dec_sec;
  time["sec"] = plate->sec;
  time["usec"] = plate->usec;
  return kStateOk;
}

int MQTTAdapter::PackPlateDetailInfo(const TH_PlateResult* plate, const Members& plate_result) {
  const std::string color = RecordText(WholeRecord(*plate), offsetof(TH_PlateResult, color_value));
  plate_result["bright"] = plate->bright;
  plate_result["carBright"] = plate->car_bright;
  plate_result["carColor"] = plate->car_color;
  plate_result["confidence"] = plate->confidence;
  plate_result["colorValue"] = static_cast<int>(strtol(color.c_str(), nullptr, 16));
  return kStateOk;
}

int MQTTAdapter::PackPlateLocationInfo(const TH_PlateResult* plate, const Members& plate_result) {
  PackRect(plate->location, plate_result.Of("location").Of("RECT"));
  plate_result["timeUsed"] = plate->time_used;
  return kStateOk;
}

int MQTTAdapter::PackPlateExtInfo(const TH_PlateResult* plate, const Members& plate_result) {
  plate_result["plate_true_width"] = plate->plate_true_width;
  plate_result["plate_distance"] = plate->plate_distance;
  plate_result["is_fake_plate"] = plate->is_fake_plate;
  PackRect(plate->car_location, plate_result.Of("car_location").Of("RECT"));
  const Members brand = plate_result.Of("car_brand");
  brand["brand"] = plate->car_brand;
  brand["year"] = plate->car_year;
  brand["type"] = plate->car_type;
  // A constant by intention: it stands for no field of the record.
  plate_result["feature_code"] = true;
  return kStateOk;
}

int MQTTAdapter::PackPlateImgInfo(const IVS_RESULT_PARAM* record, const Members& plate_result) {
  if (!m_image_func_) {
    return 0;
  }
  const std::string full_path = RecordText(*record, offsetof(IVS_RESULT_PARAM, full_image_path));
  plate_result["imagePath"] = tarvex::Base64::Encode(
      m_image_func_(full_path, NextPictureName(*record, m_sn_, "_full.jpg")));
  const std::string clip_path = RecordText(*record, offsetof(IVS_RESULT_PARAM, clip_image_path));
  plate_result["imageFragmentPath"] = tarvex::Base64::Encode(
      m_image_func_(clip_path, NextPictureName(*record, m_sn_, "_clip.jpg")));
  return 0;
}

std::string MQTTAdapter::GetPlateInfoJson(const IVS_RESULT_PARAM* record) {
  const std::string encoded =
      tarvex::Base64::Encode(RecordText(*record, offsetof(TH_PlateResult, license)));
  ADAPTER_LOG(kLogInfo, "plate:%s", encoded.c_str());
  return encoded;
}

}  // namespace qex
