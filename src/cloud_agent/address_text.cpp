#include "cloud_agent/address_text.h"

namespace agent {

std::string ParseHostAndPort(const std::string& text, std::string* host, int* port) {
  std::string name = text;
  std::string number;
  const std::size_t colon = text.rfind(':');
  const bool is_bracketed = !text.empty() && text.front() == '[';
  const std::size_t bracket = is_bracketed ? text.find(']') : std::string::npos;
  if (is_bracketed && bracket == std::string::npos) {
    return "\"" + text + "\" lacks its \"]\"";
  }
  if (is_bracketed) {
    name = text.substr(1, bracket - 1);
    number = text.substr(bracket + 1);
    if (!number.empty() && number.front() != ':') {
      return "\"" + text + "\" is not [IPV6]:PORT";
    }
    number = number.empty() ? "" : number.substr(1);
  } else if (colon != std::string::npos) {
    if (text.find(':') != colon) {
      return "an IPv6 address stands in brackets";
    }
    name = text.substr(0, colon);
    number = text.substr(colon + 1);
  }
  const bool has_port = name.size() + (is_bracketed ? 2 : 0) != text.size();
  if (name.empty()) {
    return "\"" + text + "\" names no host";
  }
  if (has_port) {
    const bool is_number = !number.empty() && number.size() <= 5 &&
                           number.find_first_not_of("0123456789") == std::string::npos;
    const int value = is_number ? std::stoi(number) : 0;
    if (value < 1 || value > 65535) {
      return "\"" + number + "\" is no port";
    }
    *port = value;
  }
  *host = name;
  return "";
}

std::string CheckTopicLevels(const std::string& text) {
  if (text.empty()) {
    return "it is empty";
  }
  if (text.find_first_of("+#") != std::string::npos || text.find('\0') != std::string::npos) {
    return "\"" + text + "\" has a character that topics cannot have";
  }
  if (text.front() == '$' || text.front() == '/' || text.back() == '/') {
    return "\"" + text + "\" begins or ends with a character that it must not";
  }
  return "";
}

}  // namespace agent
