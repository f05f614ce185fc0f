#include "cloud_agent/topic_levels.h"

namespace agent {

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
