// The names and addresses of nats_link.h, and what the environment makes of them.
#include "platform/nats_names.h"

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <string>
#include <vector>

#include <boost/algorithm/string/split.hpp>

#include "platform/host_port.h"
#include "platform/log.h"
#include "platform/nats_link.h"

namespace tarvex {
namespace {

constexpr const char* kPrefixVariable = "TARVEX_SUBJECT_PREFIX";

std::string FromEnvironment(const char* name) {
  const char* value = std::getenv(name);
  return value == nullptr ? "" : value;
}

std::vector<SocketAddress> FromVariable(const char* variable, const SocketAddress& otherwise) {
  const std::string text = FromEnvironment(variable);
  if (text.empty()) {
    return {otherwise};
  }
  std::vector<std::string> places;
  boost::split(places, text, [](char character) { return character == ','; });
  std::vector<SocketAddress> servers;
  for (const std::string& place : places) {
    std::string host;
    int port = 0;
    if (!ParseHostAndPort(place, &host, &port).empty() || !IsUsableAddress({host, port})) {
      SYS_LOG(kLogError, "%s is not \"host:port\": %s", variable, text.c_str());
      return {};
    }
    servers.emplace_back(host, port);
  }
  return servers;
}

bool IsSame(const SocketAddress& one, const SocketAddress& other) {
  return one.host() == other.host() && one.port() == other.port();
}

}  // namespace

SocketAddress BusAddress() { return {"127.0.0.1", 6101}; }

SocketAddress KvAddress() { return {"127.0.0.1", 6102}; }

std::vector<SocketAddress> EffectiveServers(const SocketAddress& address) {
  if (IsSame(address, BusAddress())) {
    return FromVariable("TARVEX_BUS_ADDRESS", address);
  }
  if (IsSame(address, KvAddress())) {
    return FromVariable("TARVEX_KV_ADDRESS", address);
  }
  return {address};
}

std::string EffectiveServersText(const SocketAddress& address) {
  std::string text;
  for (const SocketAddress& server : EffectiveServers(address)) {
    text += (text.empty() ? "" : ",") + ServerText(server);
  }
  return text;
}

std::string ServerText(const SocketAddress& server) {
  return HostAndPortText(server.host(), server.port());
}

std::string BusSubject(const std::string& name) {
  const std::string prefix = FromEnvironment(kPrefixVariable);
  return prefix.empty() ? name : prefix + "." + name;
}

std::string KvBucket(const std::string& database) {
  std::string prefix = FromEnvironment(kPrefixVariable);
  if (prefix.empty()) {
    return database;
  }
  std::replace_if(
      prefix.begin(), prefix.end(), [](char character) { return !IsBucketCharacter(character); },
      '_');
  return prefix + "_" + database;
}

bool IsUsableAddress(const SocketAddress& address) {
  const std::string& host = address.host();
  const bool plain_host = !host.empty() && std::all_of(host.begin(), host.end(), [](char c) {
    const auto character = static_cast<unsigned char>(c);
    return std::isalnum(character) != 0 || c == '.' || c == '-' || c == '_' || c == ':' ||
           c == '[' || c == ']';
  });
  return plain_host && address.port() > 0 && address.port() <= 65535;
}

bool IsUsablePrefix() {
  const std::string prefix = FromEnvironment(kPrefixVariable);
  if (prefix.empty() || IsPlainSubject(prefix)) {
    return true;
  }
  SYS_LOG(kLogError, "%s cannot begin a subject: %s", kPrefixVariable, prefix.c_str());
  return false;
}

bool IsPlainSubject(const std::string& subject) {
  char previous = '.';
  for (const char character : subject) {
    const auto code = static_cast<unsigned char>(character);
    const bool misplaced_dot = character == '.' && previous == '.';
    if (misplaced_dot || code <= ' ' || code == 0x7F || character == '*' || character == '>') {
      return false;
    }
    previous = character;
  }
  return previous != '.';
}

bool IsBucketCharacter(char character) {
  return std::isalnum(static_cast<unsigned char>(character)) != 0 || character == '_' ||
         character == '-';
}

}  // namespace tarvex
