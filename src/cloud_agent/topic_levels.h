// What people may set of a topic.
#pragma once

#include <string>

namespace agent {

/// What keeps a text from being levels of a topic, such as "cameras" or "eu/cameras".
/// @return empty when nothing does.
std::string CheckTopicLevels(const std::string& text);

}  // namespace agent
