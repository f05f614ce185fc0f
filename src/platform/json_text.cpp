#include "json_text.h"

#include <exception>
#include <memory>
#include <sstream>

#include <json/reader.h>
#include <json/writer.h>
#include <boost/locale/utf.hpp>

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

/// Replaces every byte that is not part of UTF-8 by U+FFFD: left alone, one bad string
/// would make a whole document unreadable for its receiver.
void MakeUtf8(std::string& text) {
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
    // Made once for each thread: to make them costs more than a short text does.
    thread_local const std::unique_ptr<StreamWriter> writer(CompactWriter().newStreamWriter());
    thread_local std::ostringstream stream;
    stream.clear();  // of a failure to grow, which must not outlive its text
    stream.str(std::string());
    writer->write(value, &stream);
    text = stream.str();
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
