#include "json_line.h"

#include <cstdio>

namespace qvr {

namespace {

// The length of the well-formed UTF-8 character at `at` (RFC 3629), or 0.
std::size_t character_length(std::string_view text, std::size_t at) {
  auto byte = [&](std::size_t i) {
    return i < text.size() ? static_cast<unsigned char>(text[i]) : 0u;
  };
  unsigned first = byte(at);
  std::size_t length = first < 0x80 ? 1 : first >= 0xc2 && first < 0xe0 ? 2 : first < 0xf0 ? 3 : 4;
  if (first >= 0x80 && (first < 0xc2 || first > 0xf4)) return 0;
  for (std::size_t i = 1; i < length; i++) {
    if ((byte(at + i) & 0xc0) != 0x80) return 0;
  }
  unsigned second = byte(at + 1);
  bool overlong = (first == 0xe0 && second < 0xa0) || (first == 0xf0 && second < 0x90);
  bool outside = (first == 0xed && second > 0x9f) || (first == 0xf4 && second > 0x8f);
  return overlong || outside ? 0 : length;
}

}  // namespace

std::string json_quote(std::string_view text) {
  std::string quoted = "\"";
  for (std::size_t at = 0; at < text.size();) {
    std::size_t length = character_length(text, at);
    auto c = static_cast<unsigned char>(text[at]);
    if (length == 0) {
      quoted += "\xef\xbf\xbd";
      length = 1;
    } else if (c == '"' || c == '\\') {
      quoted += '\\';
      quoted += text[at];
    } else if (c < 0x20) {
      char escape[8];
      std::snprintf(escape, sizeof escape, "\\u%04x", unsigned{c});
      quoted += escape;
    } else {
      quoted += text.substr(at, length);
    }
    at += length;
  }
  return quoted + '"';
}

json_line &json_line::add_raw(std::string_view name, std::string_view value) {
  if (!text_.empty()) text_ += ',';
  text_ += json_quote(name);
  text_ += ':';
  text_ += value;
  return *this;
}

json_line &json_line::add(std::string_view name, std::string_view value) {
  return add_raw(name, json_quote(value));
}

}  // namespace qvr
