#include "virtual_camera/ctl/passport_text.h"

#include <algorithm>
#include <cstdio>
#include <optional>
#include <sstream>
#include <vector>

#include <json/writer.h>
#include <boost/locale/utf.hpp>

#include "json_text.h"
#include "platform/json_member.h"
#include "platform/trace.h"
#include "tarvex/time_util.h"
#include "virtual_camera/world/ivs_record.h"
#include "virtual_camera/world/ivs_record_fields.h"

namespace virtual_camera {

namespace {

using tarvex::Member;

constexpr size_t kFieldBytes = 8;    // of a field that are shown
constexpr size_t kDumpedBytes = 16;  // in a line
constexpr size_t kMaxDumped = 4096;

std::string TextOf(const Json::Value& object, const char* key) {
  const Json::Value& value = Member(object, key);
  return value.isString() ? value.asString() : "";
}

int64_t NumberOf(const Json::Value& object, const char* key) {
  const Json::Value& value = Member(object, key);
  return value.isInt64() ? value.asInt64() : 0;
}

const Json::Value& ListOf(const Json::Value& object, const char* key) {
  const Json::Value& value = Member(object, key);
  return value.isArray() ? value : Json::Value::nullSingleton();
}

/// The next character of a text; '?' for one that a terminal must not get.
std::string NextCharacter(const char** next, const char* end) {
  using Utf8 = boost::locale::utf::utf_traits<char>;
  const char* const begin = *next;
  const auto code = Utf8::decode(*next, end);
  if (!boost::locale::utf::is_valid_codepoint(code)) {
    *next = begin + 1;
    return "?";
  }
  const bool is_control = code < 0x20 || (code >= 0x7F && code < 0xA0);
  return is_control ? "?" : std::string(begin, *next);
}

/// Lines of a bounded width.
class Page {
 public:
  /// Breaks what is too wide; the rest is indented by so many columns.
  void Add(const std::string& line, size_t rest_indent = 4) {
    size_t column = 0;
    const char* next = line.data();
    const char* const end = next + line.size();
    while (next != end) {
      if (column == kPassportColumns) {
        text_ += "\n" + std::string(rest_indent, ' ');
        column = rest_indent;
      }
      text_ += NextCharacter(&next, end);
      ++column;
    }
    text_ += '\n';
  }

  /// Indented lines.
  void AddBlock(const std::string& text) {
    std::istringstream lines(text);
    std::string line;
    while (std::getline(lines, line)) {
      Add("  " + line, 6);
    }
  }

  const std::string& text() const { return text_; }

 private:
  std::string text_;
};

std::string Padded(const std::string& text, size_t width) {
  return text.size() < width ? text + std::string(width - text.size(), ' ') : text;
}

std::string Milliseconds(int64_t us) {
  char text[32];
  (void)std::snprintf(text, sizeof(text), "%.3f", static_cast<double>(us) / 1000);
  return text;
}

std::string TimeText(int64_t at_us) {
  const int64_t us = std::max<int64_t>(at_us, 0);
  char fraction[8];
  (void)std::snprintf(fraction, sizeof(fraction), ".%03d", static_cast<int>(us / 1000 % 1000));
  return tarvex::XTimeUtil::TimeLocalToString(static_cast<unsigned long long>(us / 1000000)) +
         fraction;
}

std::string Hex(const std::string& bytes, size_t most) {
  std::string text;
  for (size_t i = 0; i < std::min(bytes.size(), most); ++i) {
    char digits[4];
    (void)std::snprintf(digits, sizeof(digits), "%02x", static_cast<unsigned char>(bytes[i]));
    text += (i == 0 ? "" : " ") + std::string(digits);
  }
  return bytes.size() > most ? text + " .." : text;
}

std::string Indented(const Json::Value& value) {
  Json::StreamWriterBuilder writer;
  writer["indentation"] = "  ";
  writer["emitUTF8"] = true;
  return Json::writeString(writer, value);
}

/// JSON is indented; another text stays as it is.
void AddText(const std::string& text, Page* page) {
  Json::Value value;
  page->AddBlock(Json::String2Json(text, value) ? Indented(value) : text);
}

void AddRecord(const std::string& record, Page* page) {
  const auto row = [](const std::string& offset, const std::string& bytes, const std::string& name,
                      const std::string& value) {
    return "  " + Padded(offset, 8) + Padded(bytes, 28) + Padded(name, 21) + value;
  };
  page->Add(row("offset", "bytes", "name", "value"));
  for (const IvsField& field : IvsFields()) {
    const size_t value_column = row("", "", "", "").size();
    page->Add(
        row(std::to_string(field.offset), Hex(record.substr(field.offset, field.size), kFieldBytes),
            field.name, IvsFieldValue(field, record)),
        value_column);
  }
}

void AddDump(const std::string& bytes, Page* page) {
  for (size_t i = 0; i < std::min(bytes.size(), kMaxDumped); i += kDumpedBytes) {
    std::string shown = bytes.substr(i, kDumpedBytes);
    const std::string hex = Hex(shown, kDumpedBytes);
    for (char& character : shown) {
      character = character >= 0x20 && character < 0x7F ? character : '.';
    }
    page->Add("  " + Padded(std::to_string(i), 8) + Padded(hex, kDumpedBytes * 3 + 1) + shown);
  }
  if (bytes.size() > kMaxDumped) {
    page->Add("  and " + std::to_string(bytes.size() - kMaxDumped) + " bytes more");
  }
}

/// A body of the bus: a result's record, JSON or other bytes.
void AddBody(const std::string& bytes, Page* page) {
  Json::Value value;
  if (bytes.size() == kIvsRecordSize || bytes.size() == kOfflineRecordSize) {
    AddRecord(bytes, page);
  } else if (Json::String2Json(bytes, value)) {
    page->AddBlock(Indented(value));
  } else {
    AddDump(bytes, page);
  }
}

std::string SizeOf(const std::string& bytes) { return std::to_string(bytes.size()) + " bytes"; }

void AddSteps(const Json::Value& steps, Page* page) {
  const auto row = [](const std::string& time, const std::string& after, const std::string& step,
                      const std::string& by, const std::string& note) {
    return "  " + Padded(time, 25) + Padded(after, 14) + Padded(step, 15) + Padded(by, 9) + note;
  };
  page->Add("");
  page->Add(row("time", "+ ms", "step", "by", ""));
  std::optional<int64_t> before_us;
  for (const Json::Value& step : steps) {
    const int64_t at_us = NumberOf(step, "at_us");
    page->Add(row(TimeText(at_us), before_us ? Milliseconds(at_us - *before_us) : "",
                  TextOf(step, "what"), TextOf(step, "by"), TextOf(step, "note")));
    before_us = at_us;
  }
}

void AddBusRequests(const Json::Value& requests, Page* page) {
  for (const Json::Value& request : requests) {
    const std::string body = tarvex::TracedBytes(request, "body");
    page->Add("");
    page->Add("asks " + TextOf(request, "queue") + " at " + TimeText(NumberOf(request, "at_us")) +
              ", " + SizeOf(body) + ", timeout " + std::to_string(NumberOf(request, "timeout_ms")) +
              " ms");
    AddBody(body, page);
    const std::string reply = tarvex::TracedBytes(request, "reply");
    page->Add(TextOf(request, "outcome") + " after " + Milliseconds(NumberOf(request, "us")) +
              " ms" + (Member(request, "reply").isString() ? ", " + SizeOf(reply) : ""));
    AddBody(reply, page);
  }
}

std::string Title(const Json::Value& passport) {
  std::string title =
      TextOf(passport, "id") + "  " + TextOf(passport, "name") + "  " + TextOf(passport, "state");
  if (Member(passport, "plate").isString()) {
    title += "  plate " + TextOf(passport, "plate");
  }
  if (Member(passport, "redelivered") == true) {
    title += "  re-delivered";
  }
  if (NumberOf(passport, "copies") > 1) {
    title += "  published " + std::to_string(NumberOf(passport, "copies")) + " times";
  }
  if (Member(passport, "cut") == true) {
    title += "  (long texts are cut)";
  }
  return title;
}

}  // namespace

std::string PassportText(const Json::Value& passport) {
  Page page;
  page.Add(Title(passport));
  AddSteps(ListOf(passport, "steps"), &page);
  if (const Json::Value& bus = Member(passport, "bus"); bus.isObject()) {
    const std::string body = tarvex::TracedBytes(bus, "body");
    page.Add("");
    page.Add("on the bus: " + TextOf(bus, "topic") + ", " + SizeOf(body));
    AddBody(body, &page);
  }
  if (const Json::Value& request = Member(passport, "request"); request.isObject()) {
    page.Add("");
    page.Add("request: " + TextOf(request, "topic") + ", waited " +
             Milliseconds(NumberOf(request, "waited_us")) + " ms");
    AddText(TextOf(request, "payload"), &page);
  }
  AddBusRequests(ListOf(passport, "bus_requests"), &page);
  for (const Json::Value& message : ListOf(passport, "mqtt")) {
    page.Add("");
    page.Add("published: " + TextOf(message, "topic"));
    AddText(TextOf(message, "payload"), &page);
  }
  if (const Json::Value& response = Member(passport, "response"); response.isObject()) {
    page.Add("");
    page.Add("response: " + TextOf(response, "topic") + ", after " +
             Milliseconds(NumberOf(response, "us")) + " ms");
    AddText(TextOf(response, "payload"), &page);
  }
  return page.text();
}

std::string PassportListText(const Json::Value& passports) {
  Page page;
  size_t id_width = 2;
  for (const Json::Value& passport : passports) {
    id_width = std::max(id_width, TextOf(passport, "id").size());
  }
  const auto row = [id_width](const std::string& time, const std::string& id,
                              const std::string& state, const std::string& name) {
    return Padded(time, 25) + Padded(id, id_width + 2) + Padded(state, 14) + name;
  };
  page.Add(row("since", "id", "state", "what"));
  for (const Json::Value& passport : passports) {
    const std::string plate = TextOf(passport, "plate");
    page.Add(row(TimeText(NumberOf(passport, "at_us")), TextOf(passport, "id"),
                 TextOf(passport, "state"),
                 TextOf(passport, "name") + (plate.empty() ? "" : "  " + plate)));
  }
  return page.text();
}

}  // namespace virtual_camera
