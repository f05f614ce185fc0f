// Addresses as people write them: of hosts, and in topics.
#pragma once

#include <string>

namespace agent {

/// Reads "HOST", "HOST:PORT" or "[IPV6]:PORT".
/// @param port is left alone without a port.
/// @return empty, or what is wrong.
std::string ParseHostAndPort(const std::string& text, std::string* host, int* port);

/// What keeps a text from being levels of a topic, such as "cameras" or "eu/cameras".
/// @return empty when nothing does.
std::string CheckTopicLevels(const std::string& text);

}  // namespace agent
