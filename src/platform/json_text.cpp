#include "json_text.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstddef>
#include <exception>
#include <memory>
#include <sstream>
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

/// As jsoncpp writes it. Its writer is made once for each thread: that costs more than a short
/// text does.
void AppendByJsoncpp(const Value& value, std::string& text) {
  thread_local const std::unique_ptr<StreamWriter> writer(CompactWriter().newStreamWriter());
  thread_local std::ostringstream stream;
  stream.clear();  // of a failure to grow, which must not outlive its text
  stream.str(std::string());
  writer->write(value, &stream);
  text += stream.str();
}

template <class Number>
void AppendNumber(Number number, std::string& text) {
  char digits[24];
  const char* const end = std::to_chars(digits, digits + sizeof(digits), number).ptr;
  text.append(digits, static_cast<std::size_t>(end - digits));
}

/// Whether a byte of a text stands in JSON as it is.
constexpr std::array<bool, 256> PlainBytes() {
  std::array<bool, 256> plain{};
  for (std::size_t byte = 0x20; byte < plain.size(); ++byte) {
    plain[byte] = byte != '"' && byte != '\\';
  }
  return plain;
}

void AppendText(const char* begin, const char* end, std::string& text) {
  static constexpr std::array<bool, 256> kPlain = PlainBytes();
  for (const char* c = begin; c != end; ++c) {
    if (!kPlain[static_cast<unsigned char>(*c)]) {
      AppendByJsoncpp(Value(begin, end), text);
      return;
    }
  }
  text += '"';
  text.append(begin, static_cast<std::size_t>(end - begin));
  text += '"';
}

/// The text that jsoncpp's compact writer gives, in a fraction of its time. What another of its
/// versions may write in another way is left to it.
void Append(const Value& value, std::string& text) {
  switch (value.type()) {
    case intValue:
      AppendNumber(value.asLargestInt(), text);
      return;
    case uintValue:
      AppendNumber(value.asLargestUInt(), text);
      return;
    case booleanValue:
      text += value.asBool() ? "true" : "false";
      return;
    case stringValue: {
      const char* begin = nullptr;
      const char* end = nullptr;
      value.getString(&begin, &end);
      AppendText(begin, end, text);
      return;
    }
    case arrayValue: {
      char separator = '[';
      for (const Value& element : value) {
        text += std::exchange(separator, ',');
        Append(element, text);
      }
      text += value.empty() ? "[]" : "]";
      return;
    }
    case objectValue: {
      char separator = '{';
      const auto last = value.end();
      for (auto member = value.begin(); member != last; ++member) {
        text += std::exchange(separator, ',');
        const char* name_end = nullptr;
        const char* const name = member.memberName(&name_end);
        AppendText(name, name_end, text);
        text += ':';
        Append(*member, text);
      }
      text += value.empty() ? "{}" : "}";
      return;
    }
    default:
      AppendByJsoncpp(value, text);
  }
}

/// Replaces every byte that is not part of UTF-8 by U+FFFD: left alone, one bad string
/// would make a whole document unreadable for its receiver.
void MakeUtf8(std::string& text) {
  if (std::all_of(text.begin(), text.end(),
                  [](char c) { return static_cast<unsigned char>(c) < 0x80; })) {
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
    text.clear();
    text.reserve(kUsualLength);
    Append(value, text);
    MakeUtf8(text);
    return true;
  } catch (const std::exception&) {
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
