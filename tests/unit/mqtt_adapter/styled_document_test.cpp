// The styled text of a document that is filled in again and again, against jsoncpp's own.
#include "styled_document.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "adapter_fixture.h"
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

class FilledInDocument : public testing::Test {
 protected:
  /// Names these members in this order, a dot before one that is in a member object.
  void Fill(const std::vector<const char*>& names) {
    const qex::Members body = document_.Fill();
    for (const char* name : names) {
      (name[0] == '.' ? body.Of("object")[name] : body[name]) = ++value_;
    }
  }
  std::string Body() const { return Compact(document_.body); }

  qex::StyledDocument document_;
  int value_ = 0;
};

TEST_F(FilledInDocument, KeepsItsMembersInOneOrder) {
  Fill({"b", ".a", "a"});
  const Json::Value* const member = &document_.body["object"][".a"];
  Fill({"b", ".a", "a"});
  EXPECT_EQ(Body(), "{\"a\":6,\"b\":4,\"object\":{\".a\":5}}");
  EXPECT_EQ(&document_.body["object"][".a"], member);
}

TEST_F(FilledInDocument, FindsItsMembersInAnotherOrder) {
  Fill({"a", "b", ".a"});
  Fill({".a", "b", "a"});
  EXPECT_EQ(Body(), "{\"a\":6,\"b\":5,\"object\":{\".a\":4}}");
}

TEST_F(FilledInDocument, TellsObjectsApartThatHaveTheSameNames) {
  const char* const name = "a";
  for (const bool is_first : {true, false}) {
    const qex::Members body = document_.Fill();
    const qex::Members named = body.Of(is_first ? "first" : "second");
    named[name] = is_first;
  }
  EXPECT_EQ(Body(), "{\"first\":{\"a\":true},\"second\":{\"a\":false}}");
}

TEST_F(FilledInDocument, TakesMembersThatWereNotNamedBefore) {
  Fill({"a"});
  Fill({"a", "b"});
  Fill({"a", "b"});
  EXPECT_EQ(Body(), "{\"a\":4,\"b\":5}");
}

TEST(Members, AreThoseOfAnyObject) {
  Json::Value object;
  const qex::Members members(object);
  members["a"] = 1;
  members.Of("b")["c"] = 2;
  EXPECT_EQ(Compact(object), "{\"a\":1,\"b\":{\"c\":2}}");
}

}  // namespace
