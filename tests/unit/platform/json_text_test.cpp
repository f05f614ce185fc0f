#include "json_text.h"

#include <limits>
#include <string>

#include <gtest/gtest.h>
#include <json/writer.h>

#include "support/any_json.h"

namespace {

std::string Written(const Json::Value& value) {
  std::string text;
  EXPECT_TRUE(Json::Json2String(value, text));
  return text;
}

bool IsJson(const std::string& text) {
  Json::Value value;
  return Json::String2Json(text, value);
}

Json::Value Parsed(const std::string& text) {
  Json::Value value;
  EXPECT_TRUE(Json::String2Json(text, value)) << text;
  return value;
}

TEST(WrittenJson, IsCompactAndOnOneLine) {
  Json::Value value;
  value["type"] = "gpio_out";
  value["body"]["list"].append(1);
  value["body"]["list"].append(true);
  value["body"]["none"] = Json::Value();
  EXPECT_EQ(Written(value), R"({"body":{"list":[1,true],"none":null},"type":"gpio_out"})");
}

TEST(WrittenJson, MayBeAnyKindOfValue) {
  EXPECT_EQ(Written(Json::Value()), "null");
  EXPECT_EQ(Written("text"), R"("text")");
  EXPECT_EQ(Written(Json::Value(Json::objectValue)), "{}");
  EXPECT_EQ(Written(std::numeric_limits<Json::UInt64>::max()), "18446744073709551615");
}

/// What jsoncpp's compact writer gives.
std::string JsoncppText(const Json::Value& value) {
  Json::StreamWriterBuilder builder;
  builder["indentation"] = "";
  builder["commentStyle"] = "None";
  builder["emitUTF8"] = true;
  return Json::writeString(builder, value);
}

TEST(WrittenJson, IsThatOfJsoncpp) {
  AnyJson any(0x7F);
  for (int i = AnyJson::Documents(3000); i > 0; --i) {
    Json::Value document = any.Document(3);
    document["list"].append(any.Document(1));
    document["list"].append(any.Value());
    ASSERT_EQ(Written(document), JsoncppText(document));
  }
}

TEST(WrittenJson, IsJsonWhateverBytesATextHas) {
  AnyJson any;
  for (int i = 0; i < 3000; ++i) {
    const std::string text = Written(any.Document(2));
    ASSERT_TRUE(IsJson(text)) << text;
  }
}

TEST(WrittenJson, EscapesLinesAndControlCharacters) {
  EXPECT_EQ(Written(std::string("a\nb\0\"", 5)), R"("a\nb\u0000\"")");
}

TEST(WrittenJson, PassesUtf8Through) {
  EXPECT_EQ(Written("\u7CA4B\u00B7 \U0001F697"), "\"\u7CA4B\u00B7 \U0001F697\"");
}

TEST(WrittenJson, IsUtf8EvenWhereATextIsNot) {
  EXPECT_EQ(Written("a\xD4\xC1z"), "\"a\uFFFD\uFFFDz\"");  // another character set
  EXPECT_EQ(Written("\x80"), "\"\uFFFD\"");
  EXPECT_EQ(Written("\xC3"), "\"\uFFFD\"");
  EXPECT_EQ(Written("\xC0\xAF"), "\"\uFFFD\uFFFD\"");            // overlong
  EXPECT_EQ(Written("\xED\xA0\x80"), "\"\uFFFD\uFFFD\uFFFD\"");  // half of a pair
  EXPECT_EQ(Written("\xF4\x90\x80\x80"), "\"\uFFFD\uFFFD\uFFFD\uFFFD\"");
  EXPECT_EQ(Written("\xF5"), "\"\uFFFD\"");
}

TEST(WrittenJson, IsReadBackAsItWas) {
  const std::string text = R"({"a":[1,-2,0.5,"x\ty",{"b":null}],"c":true})";
  EXPECT_EQ(Written(Parsed(text)), text);
}

TEST(ReadJson, MayBeAnyKindOfDocument) {
  EXPECT_EQ(Parsed(" 12 \n").asInt(), 12);
  EXPECT_EQ(Parsed("\"x\"").asString(), "x");
  EXPECT_TRUE(Parsed("null").isNull());
  EXPECT_TRUE(Parsed("[]").isArray());
  EXPECT_TRUE(Parsed("{}").isObject());
}

TEST(ReadJson, HasNothingBehindTheDocument) {
  EXPECT_FALSE(IsJson("{} {}"));
  EXPECT_FALSE(IsJson("{}x"));
  EXPECT_FALSE(IsJson("1 2"));
}

TEST(ReadJson, IsNotAnythingElse) {
  for (const char* text : {"", " ", "hello", "{", "[1", "{\"a\"}", "{\"a\":}", "'a'", "[1,]",
                           "{\"a\":1,}", "{} // comment", "\"open", "nul"}) {
    EXPECT_FALSE(IsJson(text)) << text;
  }
}

TEST(ReadJson, IsRefusedWhereItIsNestedTooDeeply) {
  EXPECT_FALSE(IsJson(std::string(1000000, '[')));
  EXPECT_FALSE(IsJson(std::string(100000, '[') + std::string(100000, ']')));
  EXPECT_TRUE(IsJson(std::string(100, '[') + std::string(100, ']')));
}

TEST(ReadJson, SurvivesTextThatIsNotUtf8) {
  EXPECT_EQ(Parsed("\"\xD4\xC1\"").asString(), "\xD4\xC1");
}

}  // namespace
