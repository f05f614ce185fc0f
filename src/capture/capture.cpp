#include "capture/capture.h"

#include <algorithm>
#include <map>
#include <stdexcept>

#include "json_text.h"

#include "tarvex/base64.h"

namespace capture {
namespace {

constexpr char kFormat[] = "mqtt_adapter";
constexpr int kVersion = 1;

enum class Type { kText, kNumber, kFlag, kBytes, kJson, kJsonBytes };

struct Member {
  Type type;
  bool is_required = true;
};

using Members = std::map<std::string, Member>;

const Members& HeaderMembers() {
  static const Members members = {{"capture", {Type::kText}},
                                  {"version", {Type::kNumber}},
                                  {"by", {Type::kText}},
                                  {"sn", {Type::kText}},
                                  {"start_us", {Type::kNumber}}};
  return members;
}

const std::map<std::string, Members>& Kinds() {
  static const std::map<std::string, Members> kinds = {
      {"database",
       {{"database", {Type::kText}}, {"key", {Type::kText}}, {"value", {Type::kBytes, false}}}},
      {"link", {{"up", {Type::kFlag}}}},
      {"message", {{"topic", {Type::kText}}, {"body", {Type::kBytes}}}},
      {"request",
       {{"name", {Type::kText}},
        {"version", {Type::kText}},
        {"payload", {Type::kJson, false}},
        {"payload_base64", {Type::kJsonBytes, false}}}},
      {"confirmed", {{"tag", {Type::kNumber}}}},
      {"bus_request",
       {{"queue", {Type::kText}}, {"body", {Type::kBytes}}, {"reply", {Type::kBytes, false}}}},
  };
  return kinds;
}

bool Decode(const std::string& text, std::string* bytes) {
  using tarvex::Base64;
  return Base64::DecodeFromArray(
      text.data(), text.size(),
      Base64::kParseStrict | Base64::kPaddingRequired | Base64::kEndAtBuffer, bytes, nullptr);
}

/// What a member is to be; empty where it is.
std::string WrongType(Type type, const Json::Value& value) {
  std::string bytes;
  Json::Value json;
  switch (type) {
    case Type::kText:
      return value.isString() ? "" : "a text";
    case Type::kNumber:
      return value.isInt64() && value.asInt64() >= 0 ? "" : "a whole number from 0 on";
    case Type::kFlag:
      return value.isBool() ? "" : "true or false";
    case Type::kBytes:
      return value.isString() && Decode(value.asString(), &bytes) ? "" : "bytes as Base64";
    case Type::kJsonBytes:
      return value.isString() && Decode(value.asString(), &bytes) && Json::String2Json(bytes, json)
                 ? ""
                 : "JSON as Base64";
    case Type::kJson:
      break;
  }
  return "";
}

void Check(const Json::Value& line, const Members& members) {
  for (const auto& [name, member] : members) {
    if (member.is_required && !line.isMember(name)) {
      throw std::runtime_error("\"" + name + "\" is missing");
    }
  }
  for (const std::string& name : line.getMemberNames()) {
    const auto member = members.find(name);
    if (member == members.end()) {
      throw std::runtime_error("\"" + name + "\" has no meaning here");
    }
    const std::string wanted = WrongType(member->second.type, line[name]);
    if (!wanted.empty()) {
      throw std::runtime_error("\"" + name + "\" is not " + wanted);
    }
  }
}

Json::Value Object(const std::string& text) {
  Json::Value line;
  if (!Json::String2Json(text, line)) {
    throw std::runtime_error("no JSON");
  }
  if (!line.isObject()) {
    throw std::runtime_error("no JSON object");
  }
  return line;
}

Header ReadHeader(const std::string& text) {
  const Json::Value line = Object(text);
  if (line["capture"] != kFormat) {
    throw std::runtime_error("a capture begins with {\"capture\":\"" + std::string(kFormat) +
                             "\",...}");
  }
  if (line["version"] != kVersion) {
    throw std::runtime_error("this program reads version " + std::to_string(kVersion));
  }
  Check(line, HeaderMembers());
  return {line["by"].asString(), line["sn"].asString(), line["start_us"].asInt64()};
}

Json::Value ReadEvent(const std::string& text) {
  Json::Value line = Object(text);
  const Json::Value kind = line["event"];
  const auto found = kind.isString() ? Kinds().find(kind.asString()) : Kinds().end();
  if (found == Kinds().end()) {
    throw std::runtime_error("no such \"event\"");
  }
  Members members = found->second;
  members["us"] = {Type::kNumber};
  members["event"] = {Type::kText};
  Check(line, members);
  if (kind == "request" && line.isMember("payload") == line.isMember("payload_base64")) {
    throw std::runtime_error("a request has \"payload\" or \"payload_base64\"");
  }
  return line;
}

std::string Text(const Json::Value& value) {
  std::string text;
  Json::Json2String(value, text);
  return text;
}

}  // namespace

std::string HeaderLine(const Header& header) {
  Json::Value line;
  line["capture"] = kFormat;
  line["version"] = kVersion;
  line["by"] = header.by;
  line["sn"] = header.sn;
  line["start_us"] = Json::Int64{header.start_us};
  return Text(line);
}

std::string EventLine(const std::string& event, std::int64_t us, Json::Value members) {
  members["event"] = event;
  members["us"] = Json::Int64{us};
  return Text(members);
}

Capture ReadCapture(std::istream& file, const std::string& name) {
  Capture capture;
  int number = 0;
  try {
    for (std::string text; std::getline(file, text);) {
      if (++number == 1) {
        capture.header = ReadHeader(text);
      } else {
        capture.events.push_back(ReadEvent(text));
      }
    }
  } catch (const std::exception& error) {
    throw std::runtime_error(name + ":" + std::to_string(number) + ": " + error.what());
  }
  if (number == 0) {
    throw std::runtime_error(name + " cannot be read, or is empty");
  }
  std::stable_sort(capture.events.begin(), capture.events.end(),
                   [](const Json::Value& one, const Json::Value& other) {
                     return one["us"].asInt64() < other["us"].asInt64();
                   });
  return capture;
}

std::string Encoded(const std::string& bytes) { return tarvex::Base64::Encode(bytes); }

std::string Bytes(const Json::Value& event, const char* member) {
  std::string bytes;
  Decode(event[member].asString(), &bytes);
  return bytes;
}

Json::Value Payload(const Json::Value& event) {
  if (event.isMember("payload")) {
    return event["payload"];
  }
  Json::Value payload;
  Json::String2Json(Bytes(event, "payload_base64"), payload);
  return payload;
}

}  // namespace capture
