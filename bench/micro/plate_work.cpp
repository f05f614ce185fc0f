// One recognition result.
#include <cstring>

#include "json_text.h"
#include "plug_in.h"
#include "tarvex/base64.h"
#include "work.h"

namespace bench {
namespace {

/// The value at `offset`, as the result's members are in the record.
template <class Number>
Number At(const std::string& record, size_t offset) {
  Number value;
  memcpy(&value, record.data() + offset, sizeof(value));
  return value;
}

}  // namespace

std::string PlateRecord() {
  std::string record(552, '\0');
  const auto text = [&record](size_t offset, const std::string& value) {
    record.replace(offset, value.size(), value);
  };
  const auto word = [&record](size_t offset, uint32_t value) {
    memcpy(&record[offset], &value, sizeof(value));
  };
  text(0, "WZ522XR");
  text(16, "ff8800");
  for (size_t offset = 24; offset < 84; offset += 4) {
    word(offset, static_cast<uint32_t>(offset * 3));
  }
  word(60, 0x30000042);
  word(64, 1700000000);
  word(68, 123456);
  for (size_t offset = 84; offset < 89; ++offset) {
    record[offset] = static_cast<char>(offset - 70);
  }
  word(92, 2023);
  for (size_t offset = 104; offset < 120; offset += 4) {
    word(offset, static_cast<uint32_t>(offset * 5));
  }
  record[120] = 12;
  record[121] = 3;
  record[144] = 1;
  text(296, "/tmp/app/pic/1700000000_full.jpg");
  text(424, "/tmp/app/pic/1700000000_clip.jpg");
  return record;
}

Json::Value NaivePlateDocument(const std::string& record) {
  const auto number = [&record](size_t offset) { return At<int32_t>(record, offset); };
  const auto count = [&record](size_t offset) { return At<uint32_t>(record, offset); };
  const auto byte = [&record](size_t offset) { return At<uint8_t>(record, offset); };
  using tarvex::Base64;
  Json::Value body;
  body["AlarmInfoPlate"]["channel"] = 0;
  body["AlarmInfoPlate"]["serialno"] = "SN00000001";
  body["AlarmInfoPlate"]["user_data"] = "user data";
  body["AlarmInfoPlate"]["deviceName"] = "VmlydHVhbCBjYW1lcmE=";
  body["AlarmInfoPlate"]["ipaddr"] = "192.168.1.100";
  Json::Value plate;
  plate["gioouts"] = Json::Value(Json::arrayValue);
  plate["colorType"] = number(24);
  plate["type"] = number(28);
  plate["direction"] = number(40);
  plate["triggerType"] = count(72);
  plate["isoffline"] = 0;
  plate["plateid"] = count(80);
  plate["license"] = Base64::Encode(record.substr(0, record.find('\0')));
  plate["license_ext_type"] = byte(144);
  plate["clean_time"] = number(60) & 0x0FFFFFFF;
  plate["timeStamp"]["Timeval"]["decyear"] = count(92);
  plate["timeStamp"]["Timeval"]["decmon"] = byte(88);
  plate["timeStamp"]["Timeval"]["decday"] = byte(87);
  plate["timeStamp"]["Timeval"]["dechour"] = byte(86);
  plate["timeStamp"]["Timeval"]["decmin"] = byte(85);
  plate["timeStamp"]["Timeval"]["decsec"] = byte(84);
  plate["timeStamp"]["Timeval"]["sec"] = count(64);
  plate["timeStamp"]["Timeval"]["usec"] = count(68);
  plate["bright"] = number(36);
  plate["carBright"] = byte(76);
  plate["carColor"] = byte(77);
  plate["confidence"] = number(32);
  plate["colorValue"] = static_cast<int>(strtol(record.c_str() + 16, nullptr, 16));
  plate["location"]["RECT"]["bottom"] = number(56);
  plate["location"]["RECT"]["left"] = number(44);
  plate["location"]["RECT"]["right"] = number(52);
  plate["location"]["RECT"]["top"] = number(48);
  plate["timeUsed"] = number(60);
  plate["plate_true_width"] = byte(101);
  plate["plate_distance"] = byte(102);
  plate["is_fake_plate"] = byte(103);
  plate["car_location"]["RECT"]["bottom"] = number(116);
  plate["car_location"]["RECT"]["left"] = number(104);
  plate["car_location"]["RECT"]["right"] = number(112);
  plate["car_location"]["RECT"]["top"] = number(108);
  plate["car_brand"]["brand"] = byte(120);
  plate["car_brand"]["year"] = At<uint16_t>(record, 122);
  plate["car_brand"]["type"] = byte(121);
  plate["feature_code"] = true;
  const std::string stem = "http://127.0.0.1:6180/pictures/" + std::to_string(count(64)) +
                           "_SN00000001_" + std::to_string(count(80)) + "_";
  plate["imagePath"] = Base64::Encode(stem + "0_full.jpg");
  plate["imageFragmentPath"] = Base64::Encode(stem + "1_clip.jpg");
  body["AlarmInfoPlate"]["result"]["PlateResult"] = plate;
  return body;
}

Work PlateResult() {
  boost::shared_ptr<tarvex::DpMessage> message(
      new tarvex::DpMessage{"BUS_SRV_IVS_RESULT", PlateRecord()});
  return {"plate_result",
          [] { Answers("BUS_GET_IVS_INFO", R"({"state_code":200})"); },
          [message] {
            const boost::shared_ptr<tarvex::DpClient> bus = TheBus();
            bus->SignalDpMessage(bus, message);
            ThePlugIn().events->Deliver();
            ThePlugIn().adapter->OnMessagePublished(11);
          },
          [message] { NaivePlateDocument(message->body).toStyledString(); },
          0.3,
          0.4};
}

}  // namespace bench
