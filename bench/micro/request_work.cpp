// The 23 requests. The naive way: the request's JSON read, the bus request made and written, the
// reply read where the answer is made of it, the answer made.
#include <cstdio>
#include <utility>

#include "json_text.h"
#include "plug_in.h"
#include "tarvex/base64.h"
#include "work.h"

namespace bench {
namespace {

using Json::Value;

Value Read(const std::string& text) {
  Value value;
  Json::String2Json(text, value);
  return value;
}

void Write(const Value& value) {
  std::string text;
  Json::Json2String(value, text);
}

/// The reference of a picture, as the plug-in has the host make it.
std::string Picture(const Value& reply) {
  const std::string path = reply["body"]["img_path"].asString();
  char name[80];
  snprintf(name, sizeof(name), "%04d%02d%02d%02d%02d%02d_%s_%d.jpg", 2023, 11, 14, 22, 13, 20,
           "SN00000001", 1);
  return path.empty()
             ? path
             : tarvex::Base64::Encode("http://127.0.0.1:6180/pictures/" + std::string(name));
}

constexpr char kOk[] = R"({"state_code":200})";
constexpr char kAdRecord[] =
    R"({"type":"get_ad_voice_config","state_code":200,"body":{"media_voice_time_ctrl":[{"begin":"07:00","end":"21:00","volume":60}],"led_bright_mode":1,"led_bright_time_ctrl":[{"begin":"07:00","end":"19:00","bright":80}]}})";
constexpr char kPicture[] =
    R"({"type":"picture","state_code":200,"body":{"img_path":"/tmp/app/pic/1700000000_full.jpg"}})";
constexpr char kNextPicture[] =
    R"({"type":"picture","state_code":200,"body":{"img_path":"/tmp/app/pic/1700000001_full.jpg"}})";
constexpr char kStatus[] =
    R"({"type":"get_wl_check_status","state_code":200,"body":{"filter_enable":1}})";

struct Row {
  const char* name;
  const char* payload;
  /// The queues that are asked, and what they answer.
  std::vector<std::pair<const char*, std::string>> replies;
  std::function<void(const Value& payload)> naive;
  /// What the last of the queues answers every other time; empty: always the same.
  std::string next_reply = {};
};

std::vector<Row> Rows() {
  return {
      {"ivs_trigger",
       R"({"type":"ivs_trigger"})",
       {{"ALG_REQUEST_MESSAGE", kOk}},
       [](const Value&) {
         Value request;
         request["type"] = "AVS_TRIGGER";
         request["body"]["trigger_result"] = 1;
         request["body"]["trigger_type"] = 4;
         Write(request);
       }},
      {"gpio_out",
       R"({"type":"gpio_out","body":{"io":1,"value":2,"delay":500}})",
       {{"EVS_GPIO_CONTROL", kOk}},
       [](const Value& payload) {
         const int words[] = {payload["body"]["io"].asInt(), payload["body"]["value"].asInt(),
                              payload["body"]["delay"].asInt()};
         const std::string record(reinterpret_cast<const char*>(words), sizeof(words));
       }},
      {"get_io_out_status",
       R"({"type":"get_io_out_status","body":{"gpio":1}})",
       {{"EVS_BUS_REQUEST", R"({"state_code":200,"body":{"gpio_out_status":1}})"}},
       [](const Value& payload) {
         Value request;
         request["type"] = "evs_get_gpioout";
         request["body"]["source"] = payload["body"]["gpio"];
         Write(request);
         const Value reply = Read(R"({"state_code":200,"body":{"gpio_out_status":1}})");
         Value answer;
         answer["value"] = reply["body"]["gpio_out_status"];
         answer["gpio"] = payload["body"]["gpio"];
       }},
      {"set_time",
       R"({"type":"set_time","body":{"year":"2030","month":"1","day":"5","hour":"3","min":"4","sec":"5"}})",
       {{"SS_BUS_REQUEST", kOk}},
       [](const Value& payload) {
         const Value& body = payload["body"];
         Value request;
         request["type"] = "ss_set_timing";
         request["body"]["datetime"] = body["year"].asString() + "-" + body["month"].asString() +
                                       "-" + body["day"].asString() + " " +
                                       body["hour"].asString() + ":" + body["min"].asString() +
                                       ":" + body["sec"].asString();
         Write(request);
       }},
      {"reboot_dev",
       R"({"type":"reboot_dev"})",
       {{"SS_BUS_REQUEST", kOk}},
       [](const Value&) {
         Value request;
         request["type"] = "reboot_dev";
         Write(request);
       }},
      {"get_sn",
       R"({"type":"get_sn"})",
       {},
       [](const Value&) {
         Value answer;
         answer["value"] = "SN00000001";
       }},
      {"get_device_timestamp",
       R"({"type":"get_device_timestamp"})",
       {},
       [](const Value&) {
         Value answer;
         answer["timestamp"] = static_cast<Json::Int64>(time(nullptr));
       }},
      {"serial_data",
       R"({"type":"serial_data","body":{"serialData":[{"serialChannel":0,"data":"aGVsbG8K","dataLen":6}]}})",
       {{"EVS_RS485_WRITE", kOk}},
       [](const Value& payload) {
         for (const Value& chunk : payload["body"]["serialData"]) {
           const int header[] = {111, chunk["serialChannel"].asInt()};
           std::string data;
           const std::string text = chunk["data"].asString();
           tarvex::Base64::DecodeFromArray(text.data(), text.size(), 21, &data, nullptr);
           const std::string packet =
               std::string(reinterpret_cast<const char*>(header), sizeof(header)) + data;
         }
       }},
      {"get_ad_voice",
       R"({"type":"get_ad_voice"})",
       {{"AD_HTTP_REQUESTION", kAdRecord}},
       [](const Value&) {
         Value request;
         request["type"] = "get_ad_voice_config";
         request["module"] = "AD_CONFIG_REQUESTION";
         Write(request);
         const Value reply = Read(kAdRecord);
         Value answer;
         answer["body"]["media_voice_time_ctrl"] = reply["body"]["media_voice_time_ctrl"];
       }},
      {"set_ad_voice",
       R"({"type":"set_ad_voice","body":{"media_voice_time_ctrl":[{"begin":"07:00","end":"21:00","volume":60}]}})",
       {{"AD_HTTP_REQUESTION", kAdRecord}},
       [](const Value& payload) {
         const Value reply = Read(kAdRecord);
         Value request;
         request["type"] = "set_ad_voice_config";
         request["module"] = "AD_CONFIG_REQUESTION";
         request["body"] = reply["body"];
         request["body"]["media_voice_time_ctrl"] = payload["body"]["media_voice_time_ctrl"];
         Write(request);
         Value answer;
         answer["state"] = 200;
       }},
      {"get_lcd_bright",
       R"({"type":"get_lcd_bright"})",
       {{"AD_HTTP_REQUESTION", kAdRecord}},
       [](const Value&) {
         Value request;
         request["type"] = "get_ad_voice_config";
         request["module"] = "AD_CONFIG_REQUESTION";
         Write(request);
         const Value reply = Read(kAdRecord);
         Value answer;
         answer["body"]["lcd_bright_mode"] = reply["body"]["led_bright_mode"];
         answer["body"]["lcd_bright_time_ctrl"] = reply["body"]["led_bright_time_ctrl"];
       }},
      {"set_lcd_bright",
       R"({"type":"set_lcd_bright","body":{"lcd_bright_mode":1,"lcd_bright_time_ctrl":[{"begin":"07:00","end":"19:00","bright":80}]}})",
       {{"AD_HTTP_REQUESTION", kAdRecord}},
       [](const Value& payload) {
         const Value reply = Read(kAdRecord);
         Value request;
         request["type"] = "set_ad_voice_config";
         request["module"] = "AD_CONFIG_REQUESTION";
         request["body"] = reply["body"];
         request["body"]["led_bright_mode"] = payload["body"]["lcd_bright_mode"];
         request["body"]["led_bright_time_ctrl"] = payload["body"]["lcd_bright_time_ctrl"];
         Write(request);
         Value answer;
         answer["state"] = 200;
       }},
      {"set_cloud_ctrl",
       R"({"type":"set_cloud_ctrl","body":{"type":3}})",
       {{"BUS_REQUEST_MESSAGE", kOk}},
       [](const Value&) {
         Value request;
         request["module"] = "BUS_REQUEST_MESSAGE";
         request["type"] = "set_cloud_ctrl";
         request["body"]["dir"] = 2;
         request["body"]["degree"] = 2;
         Write(request);
       }},
      {"get_image_by_id",
       R"({"type":"get_image_by_id","body":{"id":1}})",
       {{"BUS_GET_IVS_INFO", kPicture}},
       [](const Value& payload) {
         Value request;
         request["type"] = "get_img_path_by_id";
         request["body"]["plateid"] = payload["body"]["id"];
         Write(request);
         const Value reply = Read(kPicture);
         Value answer;
         answer["imgPath"] = Picture(reply);
         answer["state_code"] = 200;
         Write(answer);
       },
       kNextPicture},
      {"snapshot",
       R"({"type":"snapshot"})",
       {{"ALG_REQUEST_MESSAGE", kPicture}},
       [](const Value&) {
         Value request;
         request["type"] = "AV_SRV_GET_SNAPSHOT";
         Write(request);
         const Value reply = Read(kPicture);
         Value answer;
         answer["imageformat"] = "jpg";
         answer["imgPath"] = Picture(reply);
         answer["state_code"] = 200;
         Write(answer);
       },
       kNextPicture},
      {"bind_device_list",
       R"({"type":"bind_device_list"})",
       {{"user_get_mate_info", R"({"state_code":200,"body":[{"sn":"MATE0001","name":"rear"}]})"}},
       [](const Value&) {
         Value request;
         request["type"] = "user_get_mate_info";
         Write(request);
         const Value reply = Read(R"({"state_code":200,"body":[{"sn":"MATE0001","name":"rear"}]})");
         Value answer;
         answer["body"] = reply["body"];
         answer["state_code"] = 200;
         Write(answer);
       }},
      {"agent_rtsp_url",
       R"({"type":"agent_rtsp_url","body":{"sn":"MATE0001"}})",
       {{"user_get_rtsp_info", R"({"state_code":200,"body":{"url":"rtsp://192.168.1.101/1"}})"}},
       [](const Value& payload) {
         Value request;
         request["type"] = "user_get_rtsp_info";
         request["body"]["sn"] = payload["body"]["sn"];
         Write(request);
         const Value reply = Read(R"({"state_code":200,"body":{"url":"rtsp://192.168.1.101/1"}})");
         Value answer;
         answer["body"] = reply["body"];
         answer["state_code"] = 200;
         Write(answer);
       }},
      {"agent_talkback_port",
       R"({"type":"agent_talkback_port","body":{"sn":"MATE0001","window_size":64}})",
       {{"user_request_talkback", R"({"state_code":200,"body":{"port":6200}})"}},
       [](const Value& payload) {
         Value request;
         request["type"] = "user_request_talkback";
         request["body"]["sn"] = payload["body"]["sn"];
         request["body"]["window_size"] = payload["body"]["window_size"];
         Write(request);
         const Value reply = Read(R"({"state_code":200,"body":{"port":6200}})");
         Value answer;
         answer["body"] = reply["body"];
         answer["state_code"] = 200;
         Write(answer);
       }},
      {"lanectrl_result_cfg",
       R"({"type":"lanectrl_result_cfg","body":[{"event":"person_stay","enable":1},{"event":"vehicle_stay","enable":1}]})",
       {{"stay_event_enable", kOk}},
       [](const Value& payload) {
         Value request;
         request["type"] = "stay_event_enable";
         request["body"] = payload["body"];
         Write(request);
       }},
      {"white_list_operator",
       R"({"type":"white_list_operator","body":{"operator_type":"update_or_add","dldb_rec":{"plate":"AB12345"}}})",
       {{"BUS_WHITE_LIST_INFO", kOk}},
       [](const Value& payload) {
         Value request;
         request["type"] = "replace_white_list";
         request["body"]["white_list_rec"].append(payload["body"]["dldb_rec"]);
         Write(request);
         Read(kOk);
         Value answer;
         answer["state_code"] = 200;
         answer["operator_type"] = payload["body"]["operator_type"];
       }},
      {"wl_check_status",
       R"({"type":"wl_check_status","body":{"cmd":"get"}})",
       {{"BUS_WHITE_LIST_INFO", kStatus}},
       [](const Value&) {
         Value request;
         request["type"] = "get_wl_check_status";
         Write(request);
         const Value answer = Read(kStatus);
       }},
      {"get_last_result",
       R"({"type":"get_last_result"})",
       {{"BUS_GET_IVS_INFO", PlateRecord()}},
       [](const Value&) {
         Value request;
         request["type"] = "get_last_ivs";
         Write(request);
         static const std::string record = PlateRecord();
         const Value answer = NaivePlateDocument(record);
       }},
      {"check_offline_record",
       R"({"type":"check_offline_record","body":{"enable":"stop"}})",
       {},
       [](const Value& payload) {
         const std::string enable = payload["body"]["enable"].asString();
       }},
  };
}

}  // namespace

std::vector<Work> Requests() {
  std::vector<Work> works;
  for (const Row& row : Rows()) {
    const Value payload = Read(row.payload);
    works.push_back({row.name,
                     [row] {
                       for (const auto& [queue, reply] : row.replies) {
                         Answers(queue, reply, row.next_reply);
                       }
                     },
                     [name = std::string(row.name), payload, version = std::string("1.0")] {
                       Value response;
                       ThePlugIn().adapter->RequestMessage(name, payload, version, response);
                     },
                     [row, text = std::string(row.payload)] { row.naive(Read(text)); }, 0.7, 0});
  }
  return works;
}

const std::vector<Work>& AllWork() {
  static const std::vector<Work> all = [] {
    ThePlugIn();
    std::vector<Work> works = Requests();
    works.insert(works.begin(), PlateResult());
    return works;
  }();
  return all;
}

}  // namespace bench
