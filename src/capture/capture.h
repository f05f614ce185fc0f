// A capture: all that a plug-in was given on a device, with its times. docs/capture.md describes
// the file, one JSON object on each line.
#pragma once

#include <cstdint>
#include <istream>
#include <string>
#include <vector>

#include <json/value.h>

namespace capture {

struct Header {
  std::string by;             ///< what wrote it
  std::string sn;             ///< the device's serial number
  std::int64_t start_us = 0;  ///< when it begins: microseconds since 1970
};

/// Events have these members, and those of their kind: "us", microseconds since the start, and
/// "event", the kind.
struct Capture {
  Header header;
  std::vector<Json::Value> events;  ///< by time
};

/// The first line, without its end.
std::string HeaderLine(const Header& header);

/// The line of one event, without its end.
/// @param members those of its kind.
std::string EventLine(const std::string& event, std::int64_t us, Json::Value members);

/// @param name what errors call the file.
/// Throws std::runtime_error, "NAME:LINE: what is wrong", where it is not such a file.
Capture ReadCapture(std::istream& file, const std::string& name);

/// How bytes stand in an event.
std::string Encoded(const std::string& bytes);

/// The bytes of a member; none where it is missing.
std::string Bytes(const Json::Value& event, const char* member);

/// The payload of a "request".
Json::Value Payload(const Json::Value& event);

}  // namespace capture
