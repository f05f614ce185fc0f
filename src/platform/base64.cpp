#include "tarvex/base64.h"

#include <array>
#include <cstdint>

namespace tarvex {
namespace {

constexpr char kAlphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
constexpr std::uint8_t kNotInAlphabet = 0xFF;

constexpr std::array<std::uint8_t, 256> MakeSextets() {
  std::array<std::uint8_t, 256> sextets{};
  for (std::uint8_t& sextet : sextets) {
    sextet = kNotInAlphabet;
  }
  for (std::uint8_t value = 0; value < 64; ++value) {
    sextets[static_cast<unsigned char>(kAlphabet[value])] = value;
  }
  return sextets;
}

constexpr std::array<std::uint8_t, 256> kSextets = MakeSextets();

/// One run over a text. The last group of fewer than four characters is called the
/// rest: two of them hold one byte and four bits, three hold two bytes and two bits.
class Decoder {
 public:
  Decoder(const char* data, std::size_t length, int flags)
      : data_(data), length_(length), flags_(flags) {}

  bool Decode() {
    ReadGroups();
    const bool padded = ReadPadding();
    if (rest_length_ == 1) {
      position_ = rest_position_;  // six bits make no byte: not consumed
    }
    return IsPaddingFine(padded) && IsEndFine();
  }

  std::string& bytes() { return bytes_; }
  std::size_t position() const { return position_; }

 private:
  void ReadGroups() {
    for (; SkipTo(); ++position_) {
      const std::uint8_t sextet = kSextets[Current()];
      if (sextet == kNotInAlphabet) {
        break;
      }
      if (rest_length_ == 0) {
        rest_position_ = position_;
      }
      bits_ = bits_ << 6U | sextet;
      rest_length_ = (rest_length_ + 1) % 4;
      if (rest_length_ == 0) {
        Append(16);
        Append(8);
        Append(0);
        bits_ = 0;
      }
    }
    AppendRest();
  }

  void AppendRest() {
    if (rest_length_ == 2) {
      Append(4);
      leftover_bits_ = bits_ & 0xFU;
    } else if (rest_length_ == 3) {
      Append(10);
      Append(2);
      leftover_bits_ = bits_ & 0x3U;
    }
  }

  void Append(unsigned int shift) { bytes_.push_back(static_cast<char>(bits_ >> shift & 0xFFU)); }

  /// Consumes the padding that completes the rest, and what may be skipped behind it.
  /// @return whether the rest is complete.
  bool ReadPadding() {
    if (rest_length_ < 2 || (flags_ & Base64::kPaddingMask) == Base64::kPaddingNone) {
      return rest_length_ == 0;
    }
    std::size_t missing = 4 - rest_length_;
    for (; missing > 0 && SkipTo() && Current() == '='; --missing) {
      ++position_;
    }
    if (missing == 0) {
      SkipTo();
    }
    return missing == 0;
  }

  bool IsPaddingFine(bool padded) const {
    return padded || (flags_ & Base64::kPaddingMask) == Base64::kPaddingAny ||
           (flags_ & Base64::kPaddingMask) == Base64::kPaddingNone;
  }

  bool IsEndFine() const {
    switch (flags_ & Base64::kEndMask) {
      case Base64::kEndAny:
        return true;
      case Base64::kEndAtCharacter:
        return rest_length_ != 1 && leftover_bits_ == 0;
      default:
        return position_ == length_;
    }
  }

  /// Moves on to the next character that may not be skipped.
  /// @return whether there is one.
  bool SkipTo() {
    while (position_ < length_ && MayBeSkipped(Current())) {
      ++position_;
    }
    return position_ < length_;
  }

  bool MayBeSkipped(unsigned char character) const {
    switch (flags_ & Base64::kParseMask) {
      case Base64::kParseSkipAny:
        return character != '=' && kSextets[character] == kNotInAlphabet;
      case Base64::kParseSkipWhiteSpace:
        return character == ' ' || (character >= '\t' && character <= '\r');
      default:
        return false;
    }
  }

  unsigned char Current() const { return static_cast<unsigned char>(data_[position_]); }

  const char* data_;
  std::size_t length_;
  int flags_;
  std::string bytes_;
  std::size_t position_ = 0;
  std::size_t rest_position_ = 0;  // where the last group begins
  std::size_t rest_length_ = 0;    // characters read of it
  std::uint32_t bits_ = 0;         // those characters' bits
  std::uint32_t leftover_bits_ = 0;
};

}  // namespace

std::string Base64::Encode(const std::string& data) {
  std::string result;
  EncodeFromArray(data.data(), data.size(), &result);
  return result;
}

void Base64::EncodeFromArray(const void* data, size_t length, std::string* result) {
  const auto* bytes = static_cast<const unsigned char*>(data);
  std::string text((length + 2) / 3 * 4, '=');  // not `result` itself, which may own the data
  char* to = text.data();
  for (std::size_t start = 0; start < length; start += 3, to += 4) {
    const std::size_t count = length - start < 3 ? length - start : 3;
    std::uint32_t bits = 0;
    for (std::size_t index = 0; index < 3; ++index) {
      bits = bits << 8U | (index < count ? bytes[start + index] : 0U);
    }
    for (std::size_t index = 0; index <= count; ++index) {
      to[index] = kAlphabet[bits >> (18 - 6 * index) & 0x3FU];
    }
  }
  result->swap(text);
}

bool Base64::DecodeFromArray(const char* data, size_t length, int flags, std::string* result,
                             size_t* data_used) {
  Decoder decoder(data, length, flags);
  const bool well_formed = decoder.Decode();
  result->swap(decoder.bytes());
  if (data_used != nullptr) {
    *data_used = decoder.position();
  }
  return well_formed;
}

}  // namespace tarvex
