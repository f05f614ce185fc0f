#include "json_text.h"

#include <exception>
#include <memory>
#include <sstream>

#include <json/reader.h>
#include <json/writer.h>

namespace Json {
namespace {

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

/// Length of the UTF-8 sequence that `text` begins with, 0 when it is not one.
/// @param text  at least `available` bytes, of which there is at least one.
std::size_t SequenceLength(const char* text, std::size_t available) {
  const auto byte = [text](std::size_t index) { return static_cast<unsigned char>(text[index]); };
  const unsigned char lead = byte(0);
  if (lead < 0x80) {
    return 1;
  }
  const std::size_t length = lead < 0xC2   ? 0
                             : lead < 0xE0 ? 2
                             : lead < 0xF0 ? 3
                             : lead < 0xF5 ? 4
                                           : 0;
  if (length == 0 || length > available) {
    return 0;
  }
  for (std::size_t index = 1; index < length; ++index) {
    if ((byte(index) & 0xC0U) != 0x80) {
      return 0;
    }
  }
  // Overlong forms, surrogates, and what lies beyond the last code point.
  const unsigned char second = byte(1);
  const bool refused = (lead == 0xE0 && second < 0xA0) || (lead == 0xED && second > 0x9F) ||
                       (lead == 0xF0 && second < 0x90) || (lead == 0xF4 && second > 0x8F);
  return refused ? 0 : length;
}

/// Replaces every byte that is not part of UTF-8 by U+FFFD: left alone, one bad string
/// would make a whole document unreadable for its receiver.
void MakeUtf8(std::string& text) {
  std::size_t position = 0;
  std::string mended;
  std::size_t mended_up_to = 0;
  while (position < text.size()) {
    const std::size_t length = SequenceLength(&text[position], text.size() - position);
    if (length == 0) {
      mended.append(text, mended_up_to, position - mended_up_to).append("\xEF\xBF\xBD");
      mended_up_to = position + 1;
    }
    position += length == 0 ? 1 : length;
  }
  if (mended_up_to > 0) {
    mended.append(text, mended_up_to, std::string::npos);
    text.swap(mended);
  }
}

}  // namespace

bool Json2String(const Json::Value& value, std::string& text) {
  try {
    static const StreamWriterBuilder writer = CompactWriter();
    text = writeString(writer, value);
    MakeUtf8(text);
    return true;
  } catch (const std::exception&) {
    return false;
  }
}

bool String2Json(const std::string& text, Json::Value& value) {
  try {
    static const CharReaderBuilder builder = PlainJsonReader();
    const std::unique_ptr<CharReader> reader(builder.newCharReader());
    return reader->parse(text.data(), text.data() + text.size(), &value, nullptr);
  } catch (const std::exception&) {
    return false;  // nested too deeply
  }
}

}  // namespace Json
