#include "json_text.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <exception>
#include <memory>
#include <sstream>
#include <string_view>
#include <utility>

#include <json/reader.h>
#include <json/writer.h>
#include <boost/locale/utf.hpp>

namespace Json {
namespace {

// A plate result has less.
constexpr std::size_t kUsualLength = 1024;

StreamWriterBuilder CompactWriter() {
  StreamWriterBuilder builder;
  builder["indentation"] = "";
  builder["commentStyle"] = "None";
  builder["emitUTF8"] = true;
  return builder;
}

CharReaderBuilder PlainJsonReader() {
  CharReaderBuilder builder;
  builder["allowComments"] = false;
  builder["collectComments"] = false;
  builder["allowTrailingCommas"] = false;
  builder["failIfExtra"] = true;
  return builder;
}

/// A text that is written from its beginning on. Its room grows in steps, so that a byte more costs
/// no call of a function.
class Output {
 public:
  explicit Output(std::string& text) : text_(text) { text_.resize(kUsualLength); }

  /// @return where the next bytes go. That many fit; Advance tells how many were written.
  char* Room(std::size_t bytes) {
    if (text_.size() - length_ < bytes) {
      text_.resize(2 * text_.size() + bytes);
    }
    return &text_[length_];
  }
  void Advance(const char* end) { length_ = static_cast<std::size_t>(end - text_.data()); }

  void Append(char c) {
    *Room(1) = c;
    ++length_;
  }
  void Append(std::string_view bytes) {
    bytes.copy(Room(bytes.size()), bytes.size());
    length_ += bytes.size();
  }

  /// Takes what has room only off the text.
  void Finish() { text_.resize(length_); }

 private:
  std::string& text_;
  std::size_t length_ = 0;
};

/// As jsoncpp writes it. Its writer is made once for each thread: that costs more than a short
/// text does.
void AppendByJsoncpp(const Value& value, Output& output) {
  thread_local const std::unique_ptr<StreamWriter> writer(CompactWriter().newStreamWriter());
  thread_local std::ostringstream stream;
  stream.clear();  // of a failure to grow, which must not outlive its text
  stream.str(std::string());
  writer->write(value, &stream);
  output.Append(stream.str());
}

template <class Number>
void AppendNumber(Number number, Output& output) {
  constexpr std::size_t kMostDigits = 24;
  char* const begin = output.Room(kMostDigits);
  output.Advance(std::to_chars(begin, begin + kMostDigits, number).ptr);
}

/// Whether a byte of a text stands in JSON as it is.
constexpr std::array<bool, 256> PlainBytes() {
  std::array<bool, 256> plain{};
  for (std::size_t byte = 0x20; byte < plain.size(); ++byte) {
    plain[byte] = byte != '"' && byte != '\\';
  }
  return plain;
}

void AppendText(const char* begin, const char* end, Output& output) {
  static constexpr std::array<bool, 256> kPlain = PlainBytes();
  constexpr std::size_t kQuotes = 2;
  char* to = output.Room(static_cast<std::size_t>(end - begin) + kQuotes);
  *to++ = '"';
  for (const char* c = begin; c != end; ++c) {
    if (!kPlain[static_cast<unsigned char>(*c)]) {
      AppendByJsoncpp(Value(begin, end), output);
      return;
    }
    *to++ = *c;
  }
  *to++ = '"';
  output.Advance(to);
}

/// The text that jsoncpp's compact writer gives, in a fraction of its time. What another of its
/// versions may write in another way is left to it.
void Append(const Value& value, Output& output) {
  switch (value.type()) {
    case intValue:
      AppendNumber(value.asLargestInt(), output);
      return;
    case uintValue:
      AppendNumber(value.asLargestUInt(), output);
      return;
    case booleanValue:
      output.Append(value.asBool() ? "true" : "false");
      return;
    case stringValue: {
      const char* begin = nullptr;
      const char* end = nullptr;
      value.getString(&begin, &end);
      AppendText(begin, end, output);
      return;
    }
    case arrayValue: {
      char separator = '[';
      for (const Value& element : value) {
        output.Append(std::exchange(separator, ','));
        Append(element, output);
      }
      output.Append(value.empty() ? "[]" : "]");
      return;
    }
    case objectValue: {
      char separator = '{';
      const auto last = value.end();
      for (auto member = value.begin(); member != last; ++member) {
        output.Append(std::exchange(separator, ','));
        const char* name_end = nullptr;
        const char* const name = member.memberName(&name_end);
        AppendText(name, name_end, output);
        output.Append(':');
        Append(*member, output);
      }
      output.Append(value.empty() ? "{}" : "}");
      return;
    }
    default:
      AppendByJsoncpp(value, output);
  }
}

/// Looks at eight bytes at a time.
bool IsAscii(const std::string& text) {
  constexpr std::uint64_t kHighBits = 0x8080808080808080U;
  std::uint64_t eight = 0;
  std::size_t at = 0;
  for (; at + sizeof(eight) <= text.size(); at += sizeof(eight)) {
    std::memcpy(&eight, text.data() + at, sizeof(eight));
    if ((eight & kHighBits) != 0) {
      return false;
    }
  }
  return std::all_of(text.begin() + static_cast<std::ptrdiff_t>(at), text.end(),
                     [](char c) { return static_cast<unsigned char>(c) < 0x80; });
}

/// Replaces every byte that is not part of UTF-8 by U+FFFD: left alone, one bad string
/// would make a whole document unreadable for its receiver.
void MakeUtf8(std::string& text) {
  if (IsAscii(text)) {
    return;
  }
  using Utf8 = boost::locale::utf::utf_traits<char>;
  std::string mended;
  const char* const end = text.data() + text.size();
  const char* mended_up_to = text.data();
  for (const char* next = text.data(); next != end;) {
    const char* const character = next;
    if (!boost::locale::utf::is_valid_codepoint(Utf8::decode(next, end))) {
      mended.append(mended_up_to, character).append("\xEF\xBF\xBD");
      next = character + 1;
      mended_up_to = next;
    }
  }
  if (mended_up_to != text.data()) {
    mended.append(mended_up_to, end);
    text.swap(mended);
  }
}

}  // namespace

bool Json2String(const Json::Value& value, std::string& text) {
  try {
    Output output(text);
    Append(value, output);
    output.Finish();
    MakeUtf8(text);
    return true;
  } catch (const std::exception&) {
    text.clear();
    return false;
  }
}

bool String2Json(const std::string& text, Json::Value& value) {
  try {
    thread_local const std::unique_ptr<CharReader> reader(PlainJsonReader().newCharReader());
    return reader->parse(text.data(), text.data() + text.size(), &value, nullptr);
  } catch (const std::exception&) {
    return false;  // nested too deeply
  }
}

}  // namespace Json
