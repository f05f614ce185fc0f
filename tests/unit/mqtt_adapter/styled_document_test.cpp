// The styled text of a document that is filled in again and again, against jsoncpp's own.
#include "styled_document.h"

#include <gtest/gtest.h>

#include <string>

#include "any_json.h"

namespace {

class StyledText : public testing::Test {
 protected:
  /// Gives the values, not the members, new values of their own kind.
  void ChangeValues(Json::Value& value) {
    if (value.isObject() && !value.empty()) {
      for (const std::string& name : value.getMemberNames()) {
        ChangeValues(value[name]);
      }
    } else if (value.isString()) {
      value = any_.Text();
    } else if (!value.isArray() && any_.Below(2) == 0) {
      value = any_.Value();
    }
  }

  AnyJson any_;
};

TEST_F(StyledText, IsThatOfJsoncpp) {
  const int documents = AnyJson::Documents(3000);
  for (int i = 0; i < documents; ++i) {
    qex::StyledDocument document;
    document.body = any_.Document(3);
    for (int change = 0; change < 4; ++change) {
      ASSERT_EQ(document.Text(), document.body.toStyledString()) << "document " << i;
      ChangeValues(document.body);
    }
  }
}

TEST_F(StyledText, IsThatOfAnyValue) {
  for (int i = 0; i < 200; ++i) {
    qex::StyledDocument document;
    document.body = any_.Value();
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
