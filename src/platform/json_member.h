// Reading JSON whose shape is not known, without jsoncpp's exceptions.
#pragma once

#include <json/value.h>

namespace tarvex {

/// A member of an object; null where it is missing or `value` is no object.
inline const Json::Value& Member(const Json::Value& value, const char* key) {
  return value.isObject() ? value[key] : Json::Value::nullSingleton();
}

}  // namespace tarvex
