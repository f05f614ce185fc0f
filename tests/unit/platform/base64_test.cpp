#include "tarvex/base64.h"

#include <string>

#include <gtest/gtest.h>

namespace {

using tarvex::Base64;

constexpr int kStrict = Base64::kParseStrict + Base64::kPaddingRequired + Base64::kEndAtBuffer;

/// A decoding on one line: "ok|failed, what was decoded, characters consumed".
std::string Decoded(const std::string& text, int flags) {
  std::string result = "what was there before";
  std::size_t used = 999;
  const bool ok = Base64::DecodeFromArray(text.data(), text.size(), flags, &result, &used);
  return (ok ? "ok '" : "failed '") + result + "' " + std::to_string(used);
}

TEST(Base64Encoding, FollowsTheStandardVectors) {
  EXPECT_EQ(Base64::Encode(""), "");
  EXPECT_EQ(Base64::Encode("f"), "Zg==");
  EXPECT_EQ(Base64::Encode("fo"), "Zm8=");
  EXPECT_EQ(Base64::Encode("foo"), "Zm9v");
  EXPECT_EQ(Base64::Encode("foobar"), "Zm9vYmFy");
}

TEST(Base64Encoding, UsesTheWholeAlphabetForAnyBytes) {
  EXPECT_EQ(Base64::Encode(std::string("\xFB\xEF\xFF\x00", 4)), "++//AA==");
}

TEST(Base64Encoding, ReplacesTheResultOfAnArray) {
  std::string result = "before";
  Base64::EncodeFromArray("foo", 3, &result);
  EXPECT_EQ(result, "Zm9v");
  Base64::EncodeFromArray(nullptr, 0, &result);
  EXPECT_EQ(result, "");
}

TEST(Base64Encoding, MayWriteOverItsOwnInput) {
  std::string text = "a text that is too long to be held inside of the object";
  const std::string expected = Base64::Encode(text);
  Base64::EncodeFromArray(text.data(), text.size(), &text);
  EXPECT_EQ(text, expected);
}

TEST(Base64Decoding, GivesBackWhatWasEncoded) {
  std::string bytes;
  for (int value = 0; value < 256; ++value) {
    bytes.push_back(static_cast<char>(value));
    const std::string text = Base64::Encode(bytes);
    EXPECT_EQ(Decoded(text, kStrict), "ok '" + bytes + "' " + std::to_string(text.size()));
  }
}

TEST(Base64Decoding, TakesAnEmptyText) { EXPECT_EQ(Decoded("", kStrict), "ok '' 0"); }

TEST(Base64Decoding, NeedsNoPlaceForTheCount) {
  std::string result;
  EXPECT_TRUE(Base64::DecodeFromArray("Zm9v", 4, kStrict, &result, nullptr));
  EXPECT_EQ(result, "foo");
}

TEST(Base64Decoding, HasTheFlagsOfTheDevicesCallers) { EXPECT_EQ(kStrict, 21); }

TEST(Base64Parsing, StrictlyEndsAtTheFirstStrangeCharacterAndKeepsWhatCameBefore) {
  EXPECT_EQ(Decoded("Zm9v!mFy", kStrict), "failed 'foo' 4");
  EXPECT_EQ(Decoded("Zm9v Zm9v", kStrict), "failed 'foo' 4");
  EXPECT_EQ(Decoded("-_", kStrict), "failed '' 0");
}

TEST(Base64Parsing, SkipsWhiteSpaceOnlyWhereToldTo) {
  constexpr int flags =
      Base64::kParseSkipWhiteSpace + Base64::kPaddingRequired + Base64::kEndAtBuffer;
  EXPECT_EQ(Decoded(" Z m\t8\r\n= \n", flags), "ok 'fo' 11");
  EXPECT_EQ(Decoded("Zm9v!Zm9v", flags), "failed 'foo' 4");
}

TEST(Base64Parsing, SkipsAnythingWhereToldTo) {
  constexpr int flags = Base64::kParseSkipAny + Base64::kPaddingRequired + Base64::kEndAtBuffer;
  EXPECT_EQ(Decoded("-Z*m8 \xFF=-", flags), "ok 'fo' 9");
}

TEST(Base64Padding, IsRequiredWhereToldSo) {
  EXPECT_EQ(Decoded("Zg==", kStrict), "ok 'f' 4");
  EXPECT_EQ(Decoded("Zg=", kStrict), "failed 'f' 3");
  EXPECT_EQ(Decoded("Zg", kStrict), "failed 'f' 2");
  EXPECT_EQ(Decoded("Zm8", kStrict), "failed 'fo' 3");
}

TEST(Base64Padding, MayBeThereOrNotWhereAnyWillDo) {
  constexpr int flags = Base64::kParseStrict + Base64::kPaddingAny + Base64::kEndAtBuffer;
  EXPECT_EQ(Decoded("Zg==", flags), "ok 'f' 4");
  EXPECT_EQ(Decoded("Zg", flags), "ok 'f' 2");
}

TEST(Base64Padding, EndsTheDecodingWhereNoneIsAllowed) {
  constexpr int flags = Base64::kParseStrict + Base64::kPaddingNone + Base64::kEndAtBuffer;
  EXPECT_EQ(Decoded("Zg", flags), "ok 'f' 2");
  EXPECT_EQ(Decoded("Zg==", flags), "failed 'f' 2");
}

TEST(Base64Padding, BelongsNowhereButAtTheEnd) {
  EXPECT_EQ(Decoded("=", kStrict), "failed '' 0");
  EXPECT_EQ(Decoded("Zm9v=", kStrict), "failed 'foo' 4");
  EXPECT_EQ(Decoded("Zg==Zg==", kStrict), "failed 'f' 4");
  EXPECT_EQ(Decoded("Zg===", kStrict), "failed 'f' 4");
}

TEST(Base64End, AtTheBufferWantsEveryCharacterConsumed) {
  constexpr int flags = Base64::kParseStrict + Base64::kPaddingAny + Base64::kEndAtBuffer;
  EXPECT_EQ(Decoded("Zm9v.", flags), "failed 'foo' 4");
  EXPECT_EQ(Decoded("Zm9vZ", flags), "failed 'foo' 4");
}

TEST(Base64End, AtACharacterWantsNoBitsLeftOver) {
  constexpr int flags = Base64::kParseStrict + Base64::kPaddingAny + Base64::kEndAtCharacter;
  EXPECT_EQ(Decoded("Zm9v.", flags), "ok 'foo' 4");
  EXPECT_EQ(Decoded("Zm8.", flags), "ok 'fo' 3");
  EXPECT_EQ(Decoded("Zm9vZ", flags), "failed 'foo' 4");
  EXPECT_EQ(Decoded("Zh", flags), "failed 'f' 2");
  EXPECT_EQ(Decoded("Zm9", flags), "failed 'fo' 3");
}

TEST(Base64End, AnywhereTakesWhatThereIs) {
  constexpr int flags = Base64::kParseStrict + Base64::kPaddingAny + Base64::kEndAny;
  EXPECT_EQ(Decoded("Zm9v.", flags), "ok 'foo' 4");
  EXPECT_EQ(Decoded("Zm9vZ", flags), "ok 'foo' 4");
  EXPECT_EQ(Decoded("Zh", flags), "ok 'f' 2");
}

}  // namespace
