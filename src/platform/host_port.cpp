#include "platform/host_port.h"

#include <charconv>

namespace tarvex {
namespace {

/// A port from 1 to 65535; 0 for any other text.
int ParsePort(const std::string& text) {
  int port = 0;
  const char* end = text.data() + text.size();
  const auto parsed = std::from_chars(text.data(), end, port);
  const bool is_port = parsed.ec == std::errc() && parsed.ptr == end && port >= 1 && port <= 65535;
  return is_port ? port : 0;
}

}  // namespace

std::string ParseHostAndPort(const std::string& text, std::string* host, int* port) {
  const bool is_bracketed = !text.empty() && text.front() == '[';
  const std::size_t bracket = is_bracketed ? text.find(']') : std::string::npos;
  if (is_bracketed && bracket == std::string::npos) {
    return "\"" + text + "\" lacks its \"]\"";
  }
  const std::size_t end = is_bracketed ? bracket + 1 : text.find(':');
  const std::string name = is_bracketed ? text.substr(1, bracket - 1) : text.substr(0, end);
  if (name.empty()) {
    return "\"" + text + "\" names no host";
  }
  if (end < text.size()) {
    const std::string number = text.substr(end + 1);
    if (text[end] != ':') {
      return "\"" + text + "\" is not [IPV6]:PORT";
    }
    if (!is_bracketed && number.find(':') != std::string::npos) {
      return "an IPv6 address stands in brackets";
    }
    const int value = ParsePort(number);
    if (value == 0) {
      return "\"" + number + "\" is no port";
    }
    *port = value;
  }
  *host = name;
  return "";
}

std::string HostAndPortText(const std::string& host, int port) {
  const bool is_bare_ipv6 = host.find(':') != std::string::npos && host.front() != '[';
  return (is_bare_ipv6 ? "[" + host + "]" : host) + ":" + std::to_string(port);
}

}  // namespace tarvex
