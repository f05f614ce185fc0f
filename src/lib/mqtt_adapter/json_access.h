// Reading JSON whose shape is not known. jsoncpp throws when a value is asked for
// what its type does not have; these do not.
//
// Keys are written as plain texts, which jsoncpp copies. With Json::StaticString it
// would keep pointers into this library, and the host's copies die with it.
#pragma once

#include <json/value.h>
#include <boost/utility/string_view.hpp>

namespace qex {

/// A member of an object; null where it is missing or `value` is no object.
inline const Json::Value& Member(const Json::Value& value, const char* key) {
  return value.isObject() ? value[key] : Json::Value::nullSingleton();
}

/// An element of an array; null where it is missing or `value` is no array.
inline const Json::Value& Element(const Json::Value& value, Json::ArrayIndex index) {
  return value.isArray() ? value[index] : Json::Value::nullSingleton();
}

/// Whether `value` is that very text.
inline bool IsText(const Json::Value& value, boost::string_view text) {
  const char* begin = nullptr;
  const char* end = nullptr;
  return value.isString() && value.getString(&begin, &end) &&
         boost::string_view(begin, static_cast<size_t>(end - begin)) == text;
}

/// Whether `value` is an object with that member, null or not.
inline bool HasMember(const Json::Value& value, const char* key) {
  return value.isObject() && value.isMember(key);
}

}  // namespace qex
