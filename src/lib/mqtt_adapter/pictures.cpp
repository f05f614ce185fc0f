// Pictures on request: that of an earlier result, and one taken now.
#include <algorithm>
#include <cstdio>
#include <iterator>
#include <utility>

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

/// Of the time in a picture's name.
constexpr size_t kMostTimeText = 22;
constexpr size_t kUsualNameSize = 64;

/// The path in a service's reply; nothing unless that is JSON with a text there. Each picture has
/// another path, so these replies are not kept.
boost::optional<std::string> ImagePath(const std::string& reply) {
  Json::Value parsed;
  if (reply.empty() || !Json::String2Json(reply, parsed)) {
    return boost::none;
  }
  const Json::Value& path = Member(Member(parsed, "body"), "img_path");
  if (!path.isString()) {
    return boost::none;
  }
  return path.asString();
}

/// As "%0*d" writes it.
void AppendPadded(int number, int width, std::string* text) {
  char digits[16];
  char* begin = std::end(digits);
  const bool is_negative = number < 0;
  auto rest =
      is_negative ? 0U - static_cast<unsigned int>(number) : static_cast<unsigned int>(number);
  do {
    *--begin = static_cast<char>('0' + rest % 10);
    rest /= 10;
  } while (rest != 0 || std::end(digits) - begin < width - (is_negative ? 1 : 0));
  if (is_negative) {
    *--begin = '-';
  }
  text->append(begin, static_cast<size_t>(std::end(digits) - begin));
}

}  // namespace

/// What the host makes of a picture under the next number. A number whose picture fails
/// goes to the one after it.
std::string MQTTAdapter::NextPictureReference(const std::string& path, unsigned int* counter) {
  tarvex::_TimeS now = {};
  tarvex::XTimeUtil::TimeLocalMake(&now, 0);
  std::string name;
  name.reserve(kUsualNameSize);
  AppendPadded(now.year, 4, &name);
  for (const int part : {now.month, now.day, now.hour, now.minute, now.second}) {
    AppendPadded(part, 2, &name);
  }
  name.resize(std::min(name.size(), kMostTimeText));
  // Taken before the call, which may lead back to here: no two pictures share a name.
  const unsigned int number = (*counter)++;
  name.append("_").append(m_sn_).append("_").append(std::to_string(number)).append(".jpg");
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
  std::string reply;
  SendBusRequest(kQueueResults, text, kPictureTimeout_ms, &reply);
  const boost::optional<std::string> path = ImagePath(reply);
  if (!path || !m_image_func_) {
    return false;
  }
  std::unique_ptr<Json::Value> picture = std::move(m_image_answer_);
  if (!picture) {
    picture = std::make_unique<Json::Value>();
    (*picture)["state_code"] = kStateOk;
  }
  (*picture)["imgPath"] = NextPictureReference(*path, &g_image_by_id_counter);
  std::string picture_text;
  Json::Json2String(*picture, picture_text);
  ADAPTER_LOG(kLogDebug, "DoCmdGetImageById:%s ", picture_text.c_str());
  Publish("get_image_by_id", *picture, kTagGetImageById);
  m_image_answer_ = std::move(picture);
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
  const boost::optional<std::string> path = ImagePath(reply);
  if (!path) {
    return false;
  }
  ADAPTER_LOG(kLogInfo, "image_path:%s", reply.c_str());
  if (!m_image_func_) {
    return false;
  }
  std::unique_ptr<Json::Value> picture = std::move(m_snapshot_answer_);
  if (!picture) {
    picture = std::make_unique<Json::Value>();
    (*picture)["imageformat"] = "jpg";
    (*picture)["state_code"] = kStateOk;
  }
  (*picture)["imgPath"] = NextPictureReference(*path, &g_snapshot_counter);
  std::string picture_text;
  Json::Json2String(*picture, picture_text);
  printf("SnapshotPushData:%s\n", picture_text.c_str());
  Publish("snapshot", *picture, kTagSnapshot);
  m_snapshot_answer_ = std::move(picture);
  return true;
}

}  // namespace qex
