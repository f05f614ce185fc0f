// Random JSON values of every kind, for texts that are held against jsoncpp's own.
#pragma once

#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <limits>
#include <random>
#include <string>

#include <json/value.h>

class AnyJson {
 public:
  /// @param highest of the bytes of a text.
  explicit AnyJson(std::uint32_t highest = 0xFF) : highest_(highest) {}

  /// How many documents a test looks at: JSON_DOCUMENTS where that is set.
  static int Documents(int otherwise) {
    const char* wanted = std::getenv("JSON_DOCUMENTS");
    return wanted != nullptr ? std::stoi(wanted) : otherwise;
  }

  std::uint32_t Below(std::uint32_t count) {
    return std::uniform_int_distribution<std::uint32_t>(0, count - 1)(random_);
  }

  /// Mostly of letters, at times of any bytes.
  std::string Text() {
    const bool is_plain = Below(4) != 0;
    std::string text(Below(12), '\0');
    for (char& c : text) {
      c = is_plain ? static_cast<char>('a' + Below(26)) : static_cast<char>(Below(highest_ + 1));
    }
    return text;
  }

  /// Not an object or a list with anything in it.
  Json::Value Value() {
    switch (Below(12)) {
      case 0:
        return Json::Value();
      case 1:
        return Below(2) == 0;
      case 2:
        return std::ldexp(static_cast<double>(random_()), static_cast<int>(Below(200)) - 100);
      case 3:
        return std::numeric_limits<Json::Int64>::min();
      case 4:
        return std::numeric_limits<Json::UInt64>::max();
      case 5:
        return static_cast<int>(random_());
      case 6:
        return static_cast<Json::UInt>(random_());
      case 7:
        return Json::Value(Below(2) == 0 ? Json::arrayValue : Json::objectValue);
      default:
        return Text();
    }
  }

  /// An object, whose objects go `depth` further down.
  Json::Value Document(int depth) {
    Json::Value object(Json::objectValue);
    for (std::uint32_t i = Below(6); i > 0; --i) {
      object[Text()] = depth > 0 && Below(3) == 0 ? Document(depth - 1) : Value();
    }
    return object;
  }

 private:
  const std::uint32_t highest_;
  std::mt19937 random_{20261121};
};
