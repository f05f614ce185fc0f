// The styled text of a document that is filled in again and again, against jsoncpp's own.
#include "styled_document.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <limits>
#include <random>
#include <string>

namespace {

class StyledText : public testing::Test {
 protected:
  std::uint32_t Below(std::uint32_t count) {
    return std::uniform_int_distribution<std::uint32_t>(0, count - 1)(random_);
  }

  /// Mostly of letters, at times of anything at all, UTF-8 or not.
  std::string AnyText() {
    const bool is_plain = Below(4) != 0;
    std::string text(Below(12), '\0');
    for (char& c : text) {
      c = is_plain ? static_cast<char>('a' + Below(26)) : static_cast<char>(Below(256));
    }
    return text;
  }

  Json::Value AnyValue() {
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
        return AnyText();
    }
  }

  Json::Value AnyDocument(int depth) {
    Json::Value object(Json::objectValue);
    for (std::uint32_t i = Below(6); i > 0; --i) {
      object[AnyText()] = depth > 0 && Below(3) == 0 ? AnyDocument(depth - 1) : AnyValue();
    }
    return object;
  }

  /// Gives the values, not the members, new values of their own kind.
  void ChangeValues(Json::Value& value) {
    if (value.isObject() && !value.empty()) {
      for (const std::string& name : value.getMemberNames()) {
        ChangeValues(value[name]);
      }
    } else if (value.isString()) {
      value = AnyText();
    } else if (!value.isArray() && Below(2) == 0) {
      value = AnyValue();
    }
  }

  std::mt19937 random_{20261121};
};

TEST_F(StyledText, IsThatOfJsoncpp) {
  const char* wanted = std::getenv("STYLED_DOCUMENTS");
  const int documents = wanted != nullptr ? std::stoi(wanted) : 3000;
  for (int i = 0; i < documents; ++i) {
    qex::StyledDocument document;
    document.body = AnyDocument(3);
    for (int change = 0; change < 4; ++change) {
      ASSERT_EQ(document.Text(), document.body.toStyledString()) << "document " << i;
      ChangeValues(document.body);
    }
  }
}

TEST_F(StyledText, IsThatOfAnyValue) {
  for (int i = 0; i < 200; ++i) {
    qex::StyledDocument document;
    document.body = AnyValue();
    EXPECT_EQ(document.Text(), document.body.toStyledString());
    EXPECT_EQ(document.Text(), document.body.toStyledString());
  }
}

TEST_F(StyledText, HasListsAsTheyAre) {
  qex::StyledDocument document;
  document.body["list"].append(1);
  document.body["list"].append("a \"quoted\" text");
  document.body["number"] = 1;
  EXPECT_EQ(document.Text(), document.body.toStyledString());
  document.body["number"] = -2;
  EXPECT_EQ(document.Text(), document.body.toStyledString());
}

TEST_F(StyledText, FollowsAValueThatLooksLikeThoseTheLayoutIsTakenWith) {
  qex::StyledDocument document;
  for (const char* text : {"@0@", "@1@", "\"@1@\""}) {
    document.body["a"] = text;
    document.body["@1@"] = text;
    EXPECT_EQ(document.Text(), document.body.toStyledString());
  }
}

}  // namespace
