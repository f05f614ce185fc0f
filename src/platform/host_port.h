// Addresses of servers as people write them.
#pragma once

#include <string>

namespace tarvex {

/// Reads "HOST", "HOST:PORT", "[IPV6]" or "[IPV6]:PORT".
/// @param host is set without brackets; left alone on a mistake, as `port` is.
/// @param port is left alone without a port.
/// @return empty, or what is wrong.
std::string ParseHostAndPort(const std::string& text, std::string* host, int* port);

/// "HOST:PORT", with an IPv6 address in brackets, which the host may have already.
std::string HostAndPortText(const std::string& host, int port);

}  // namespace tarvex
