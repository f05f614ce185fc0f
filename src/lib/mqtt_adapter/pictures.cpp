// Pictures on request: that of an earlier result, and one taken now.
#include <cstdio>

#include "json_access.h"
#include "json_text.h"
#include "log.h"
#include "mqtt_adapter.h"
#include "protocol.h"
#include "tarvex/base64.h"
#include "tarvex/time_util.h"

namespace qex {
namespace {

/// Each kind of picture is numbered by itself, from 0, for the life of the process.
unsigned int g_image_by_id_counter = 0;
unsigned int g_snapshot_counter = 0;

/// Room for the time in a picture's name, its NUL included.
constexpr size_t kTimeTextSize = 23;

/// The path in a service's reply; null unless it is a string.
const Json::Value& ImagePath(const Json::Value& reply) {
  const Json::Value& path = Member(Member(reply, "body"), "img_path");
  return path.isString() ? path : Json::Value::nullSingleton();
}

}  // namespace

/// What the host makes of a picture under the next number. A number whose picture fails
/// goes to the one after it.
std::string MQTTAdapter::NextPictureReference(const std::string& path, unsigned int* counter) {
  tarvex::_TimeS now = {};
  tarvex::XTimeUtil::TimeLocalMake(&now, 0);
  char time_text[64];
  snprintf(time_text, kTimeTextSize, "%04d%02d%02d%02d%02d%02d", now.year, now.month, now.day,
           now.hour, now.minute, now.second);
  // Taken before the call, which may lead back to here: no two pictures share a name.
  const unsigned int number = (*counter)++;
  const std::string name =
      std::string(time_text) + "_" + m_sn_ + "_" + std::to_string(number) + ".jpg";
  try {
    return tarvex::Base64::Encode(m_image_func_(path, name));
  } catch (...) {
    if (*counter == number + 1) {
      *counter = number;
    }
    throw;
  }
}

bool MQTTAdapter::DoCmdGetImageById(const Json::Value& payload, const std::string& version,
                                    Json::Value& /*response*/) {
  if (TypeOf(payload, __func__) == nullptr) {
    return false;
  }
  const Json::Value& id = Member(Member(payload, "body"), "id");
  if (!id.isInt() || !TypeIs(payload, "get_image_by_id")) {
    return false;
  }
  ADAPTER_LOG(kLogInfo, "DoCmdGetImageById:%d", id.asInt());
  Json::Value& request = KeptRequest("get_img_path_by_id");
  request["body"]["plateid"] = id;
  std::string text;
  // The version only now, with the id logged and the request built: deliberate.
  if (!Json::Json2String(request, text) || version != kVersion) {
    return false;
  }
  // What counts is the reply, not the result of the send; the snapshot's counts.
  const boost::optional<Json::Value> reply = AskForJson(kQueueResults, text, kPictureTimeout_ms);
  if (!reply) {
    return false;
  }
  const Json::Value& path = ImagePath(*reply);
  if (path.isNull() || !m_image_func_) {
    return false;
  }
  Json::Value picture;
  picture["imgPath"] = NextPictureReference(path.asString(), &g_image_by_id_counter);
  picture["state_code"] = kStateOk;
  std::string picture_text;
  Json::Json2String(picture, picture_text);
  ADAPTER_LOG(kLogDebug, "DoCmdGetImageById:%s ", picture_text.c_str());
  Publish("get_image_by_id", picture, kTagGetImageById);
  return true;
}

bool MQTTAdapter::DoCmdSnapshot(const Json::Value& payload, const std::string& version,
                                Json::Value& /*response*/) {
  if (!IsRequest(payload, "snapshot", __func__)) {
    return false;
  }
  std::string text;
  if (!Json::Json2String(KeptRequest("AV_SRV_GET_SNAPSHOT"), text) || version != kVersion) {
    return false;
  }
  std::string reply;
  if (SendBusRequest(kQueueRecognition, text, kPictureTimeout_ms, &reply) <= 0) {
    ADAPTER_LOG(kLogError, "send dp failed:%s", text.c_str());
    return false;
  }
  const boost::optional<Json::Value> parsed = ParsedReply(reply);
  const Json::Value& path = parsed ? ImagePath(*parsed) : Json::Value::nullSingleton();
  if (path.isNull()) {
    return false;
  }
  ADAPTER_LOG(kLogInfo, "image_path:%s", reply.c_str());
  if (!m_image_func_) {
    return false;
  }
  Json::Value picture;
  picture["imageformat"] = "jpg";
  picture["imgPath"] = NextPictureReference(path.asString(), &g_snapshot_counter);
  picture["state_code"] = kStateOk;
  std::string picture_text;
  Json::Json2String(picture, picture_text);
  printf("SnapshotPushData:%s\n", picture_text.c_str());
  Publish("snapshot", picture, kTagSnapshot);
  return true;
}

}  // namespace qex
