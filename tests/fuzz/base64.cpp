// The decoder of the cloud's serial data, the strict one, and beside it all of its other kinds.
// The input: the text.
#include <cstdint>
#include <string>

#include "fuzz_check.h"
#include "tarvex/base64.h"

namespace {

using fuzz::Check;
using tarvex::Base64;

constexpr int kStrict = Base64::kParseStrict | Base64::kPaddingRequired | Base64::kEndAtBuffer;

struct Decoded {
  bool is_well_formed;
  std::string bytes;
  std::size_t used;
};

Decoded Decode(const std::string& text, int flags) {
  Decoded decoded = {false, "what was there before", 0};
  decoded.is_well_formed =
      Base64::DecodeFromArray(text.data(), text.size(), flags, &decoded.bytes, &decoded.used);
  Check(decoded.used <= text.size(), "no more is used than there is");
  Check(decoded.bytes.size() <= (text.size() + 3) / 4 * 3, "four characters are three bytes");
  return decoded;
}

/// Bits that the last character has beyond the last byte: they are lost.
bool HasBitsLeft(const std::string& text) {
  return !Decode(text, Base64::kParseStrict | Base64::kPaddingRequired | Base64::kEndAtCharacter)
              .is_well_formed;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string input(reinterpret_cast<const char*>(data), size);
  Decode(input, static_cast<int>(size % 64));
  const Decoded strict = Decode(input, kStrict);
  const std::string again = Base64::Encode(strict.bytes);
  if (strict.is_well_formed) {
    Check(strict.used == size && again.size() == size, "a well-formed text is used whole");
    Check(again == input || HasBitsLeft(input), "what decodes encodes to the same text");
  } else {
    Check(again.compare(0, again.size() / 4 * 4, input, 0, again.size() / 4 * 4) == 0 ||
              again.size() / 4 * 3 >= strict.bytes.size(),
          "bytes before an error are those of the text");
  }
  const Decoded back = Decode(Base64::Encode(input), kStrict);
  Check(back.is_well_formed && back.bytes == input, "what is encoded decodes to the same bytes");
  return 0;
}
