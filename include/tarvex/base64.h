// Base64 with the alphabet and padding of RFC 4648, section 4.
#pragma once

#include <cstddef>
#include <string>

namespace tarvex {

class Base64 {
 public:
  /// How a text is decoded: one flag of each of the three groups, added up.
  enum DecodeFlags {
    // What a character outside the alphabet does:
    kParseStrict = 1,          ///< it ends the decoding
    kParseSkipWhiteSpace = 2,  ///< white space is skipped, any other ends the decoding
    kParseSkipAny = 3,         ///< it is skipped
    kParseMask = 3,
    // Padding at the end:
    kPaddingRequired = 4,
    kPaddingAny = 8,
    kPaddingNone = 12,
    kPaddingMask = 12,
    // Where the input must have ended:
    kEndAtBuffer = 16,     ///< all characters consumed
    kEndAtCharacter = 32,  ///< no bits of an unfinished byte left over
    kEndAny = 48,
    kEndMask = 48
  };

  static std::string Encode(const std::string& data);

  /// @param result is replaced by the encoded text.
  static void EncodeFromArray(const void* data, size_t length, std::string* result);

  /// Decodes `length` characters.
  /// @param flags     one of each group of DecodeFlags.
  /// @param result    is replaced by the bytes decoded, on failure by those before it.
  /// @param data_used receives the number of characters consumed; may be null.
  /// @return whether the text was well formed under the flags.
  static bool DecodeFromArray(const char* data, size_t length, int flags, std::string* result,
                              size_t* data_used);
};

}  // namespace tarvex
