// Telling UTF-8 from other bytes.
#pragma once

#include <string_view>

#include <boost/locale/utf.hpp>

namespace tarvex {

/// Whether bytes are UTF-8.
inline bool IsUtf8(std::string_view bytes) {
  using Utf8 = boost::locale::utf::utf_traits<char>;
  const char* next = bytes.data();
  const char* const end = next + bytes.size();
  while (next != end) {
    if (!boost::locale::utf::is_valid_codepoint(Utf8::decode(next, end))) {
      return false;
    }
  }
  return true;
}

}  // namespace tarvex
