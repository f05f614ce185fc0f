#include "virtual_camera/service.h"

#include <exception>

#include "json_text.h"
#include "virtual_camera/log.h"
#include "virtual_camera/request_error.h"

namespace virtual_camera {

namespace {

std::string Text(const Json::Value& value) {
  std::string text;
  Json::Json2String(value, text);
  return text;
}

const Json::Value& Member(const Json::Value& object, const char* key) {
  if (!object.isObject() || !object.isMember(key)) {
    throw RequestError(std::string("there is no \"") + key + "\"");
  }
  return object[key];
}

}  // namespace

std::string JsonService::Answer(const std::string& request) {
  try {
    Json::Value parsed;
    if (!Json::String2Json(request, parsed)) {
      throw RequestError("the request is not JSON");
    }
    const std::string type = RequiredText(parsed, "type");
    return Handle(type, parsed);
  } catch (const RequestError& error) {
    CAMERA_LOG(kLogWarning, "request refused: %s", error.what());
    return Refused(error.what());
  } catch (const std::exception& error) {
    CAMERA_LOG(kLogError, "request failed: %s", error.what());
    return Refused(error.what());
  }
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
  const Json::Value& value = Member(object, key);
  if (!value.isString()) {
    throw RequestError(std::string("\"") + key + "\" is not a text");
  }
  return value.asString();
}

int RequiredInt(const Json::Value& object, const char* key) {
  const Json::Value& value = Member(object, key);
  if (!value.isInt()) {
    throw RequestError(std::string("\"") + key + "\" is not an integer");
  }
  return value.asInt();
}

uint32_t RequiredUnsigned(const Json::Value& object, const char* key) {
  const Json::Value& value = Member(object, key);
  if (!value.isUInt()) {
    throw RequestError(std::string("\"") + key + "\" is not an unsigned integer");
  }
  return value.asUInt();
}

}  // namespace virtual_camera
