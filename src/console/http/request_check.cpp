#include "console/http/request_check.h"

#include <random>

namespace console {
namespace {

/// Takes as long for a wrong token as for the right one.
bool AreEqual(const std::string& one, const std::string& other) {
  unsigned difference = one.size() == other.size() ? 0 : 1;
  for (std::size_t i = 0; i < one.size() && i < other.size(); ++i) {
    difference |= static_cast<unsigned>(one[i] ^ other[i]) & 0xFFU;
  }
  return difference == 0;
}

}  // namespace

std::string MakeToken() {
  constexpr char kDigits[] = "0123456789abcdef";
  std::random_device random;
  std::string token;
  for (int i = 0; i < 32; ++i) {
    token += kDigits[random() % 16];
  }
  return token;
}

std::string RequestCheck::Host(const HttpRequest& request) const {
  const std::string port = ":" + std::to_string(port_);
  return request.host == "127.0.0.1" + port || request.host == "localhost" + port
             ? ""
             : "this host is not served";
}

std::string RequestCheck::Origin(const HttpRequest& request) const {
  std::string refusal = Host(request);
  if (refusal.empty() && request.origin != "http://" + request.host) {
    refusal = "only the console's own page may do this: the Origin is another";
  }
  return refusal;
}

std::string RequestCheck::Change(const HttpRequest& request) const {
  std::string refusal = Origin(request);
  if (refusal.empty() && !AreEqual(request.token, token_)) {
    refusal =
        "only the console's own page may do this: the token is missing or an old one; "
        "load the page again";
  }
  return refusal;
}

}  // namespace console
