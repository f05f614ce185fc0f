#include "virtual_camera/services/service.h"

#include <cstring>
#include <exception>

#include "json_text.h"
#include "platform/json_member.h"
#include "platform/log.h"
#include "virtual_camera/device/request_error.h"

namespace virtual_camera {

namespace {

std::string Text(const Json::Value& value) {
  std::string text;
  Json::Json2String(value, text);
  return text;
}

const Json::Value& RequiredMember(const Json::Value& object, const char* key) {
  const Json::Value& value = tarvex::Member(object, key);
  if (value.isNull()) {
    throw RequestError(std::string("there is no \"") + key + "\"");
  }
  return value;
}

template <class Work>
std::string Guarded(Work work) {
  try {
    return work();
  } catch (const RequestError& error) {
    SYS_LOG(kLogWarning, "request refused: %s", error.what());
    return Refused(error.what());
  } catch (const std::exception& error) {
    SYS_LOG(kLogError, "request failed: %s", error.what());
    return Refused(error.what());
  }
}

}  // namespace

std::string JsonService::Answer(const std::string& request) {
  return Guarded([this, &request] {
    Json::Value parsed;
    if (!Json::String2Json(request, parsed)) {
      throw RequestError("the request is not JSON");
    }
    const std::string type = RequiredText(parsed, "type");
    return Handle(type, parsed);
  });
}

std::string RecordService::Answer(const std::string& request) {
  return Guarded([this, &request] { return Handle(request); });
}

int32_t RecordService::Int32At(const std::string& request, size_t offset) {
  static_assert(__BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__, "numbers are read as they lie");
  int32_t value = 0;
  std::memcpy(&value, request.data() + offset, sizeof(value));
  return value;
}

std::string Accepted(const Json::Value& body) {
  Json::Value answer;
  answer["body"] = body;
  answer["state_code"] = 200;
  return Text(answer);
}

std::string Refused(const std::string& reason) {
  Json::Value answer;
  answer["error"] = reason;
  answer["state_code"] = 400;
  return Text(answer);
}

void RefuseType(const std::string& type) { throw RequestError("no request \"" + type + "\" here"); }

std::string RequiredText(const Json::Value& object, const char* key) {
  const Json::Value& value = RequiredMember(object, key);
  if (!value.isString()) {
    throw RequestError(std::string("\"") + key + "\" is not a text");
  }
  return value.asString();
}

int RequiredInt(const Json::Value& object, const char* key) {
  const Json::Value& value = RequiredMember(object, key);
  if (!value.isInt()) {
    throw RequestError(std::string("\"") + key + "\" is not an integer");
  }
  return value.asInt();
}

uint32_t RequiredUnsigned(const Json::Value& object, const char* key) {
  const Json::Value& value = RequiredMember(object, key);
  if (!value.isUInt()) {
    throw RequestError(std::string("\"") + key + "\" is not an unsigned integer");
  }
  return value.asUInt();
}

}  // namespace virtual_camera
