// JSON values to text and back. Both are callable from any thread and throw nothing.
#pragma once

#include <string>

#include <json/value.h>

namespace Json {

/// Serialises a value: compact, on one line, without a trailing newline.
/// @return false when the value cannot be serialised; `text` is unspecified then.
bool Json2String(const Json::Value& value, std::string& text);

/// Parses one JSON document of any type.
/// @return false when the text is not JSON; `value` is unspecified then.
bool String2Json(const std::string& text, Json::Value& value);

}  // namespace Json
