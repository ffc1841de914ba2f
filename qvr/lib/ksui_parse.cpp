#include <charconv>

#include "ksui.h"
#include "posix_cksum.h"

namespace qvr {

namespace {

bool is_blank(char c) {
  return c == ' ' || (c >= '\t' && c <= '\r');
}

std::string_view skip_blanks(std::string_view text) {
  while (!text.empty() && is_blank(text.front())) text.remove_prefix(1);
  return text;
}

bool read_hex(std::string_view text, std::uint32_t &word) {
  auto [end, error] = std::from_chars(text.data(), text.data() + 8, word, 16);
  return error == std::errc() && end == text.data() + 8;
}

// The text begins with a long form whose checksum is right.
bool read_long(std::string_view text, ksui &out) {
  if (text.size() < KSUI_LONG_LENGTH) return false;
  std::uint32_t sum, word;
  if (!read_hex(text, sum)) return false;
  for (int i = 0; i < 5; i++) {
    std::string_view group = text.substr(static_cast<std::size_t>(9 * i) + 8, 9);
    if (group[0] != '-' || !read_hex(group.substr(1), word)) return false;
    out.set_word(i, word);
  }
  return posix_cksum({reinterpret_cast<const char *>(out.bytes.data()), out.bytes.size()}) == sum;
}

bool one_of(std::int32_t kind, std::initializer_list<std::int32_t> kinds) {
  for (std::int32_t k : kinds) {
    if (k == kind) return true;
  }
  return false;
}

// "/", a decimal clone id and the end of the text, spaces around the "/".
bool read_cloneid(std::string_view text, std::int64_t &cloneid) {
  auto spaces = [](std::string_view t) {
    while (!t.empty() && t.front() == ' ') t.remove_prefix(1);
    return t;
  };
  text = spaces(text);
  if (text.empty() || text.front() != '/') return false;
  text = spaces(text.substr(1));
  auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), cloneid);
  return error == std::errc() && end == text.data() + text.size();
}

}  // namespace

std::int32_t ksui_parse(std::string_view text, ksui &out, std::string_view *rest) {
  text = skip_blanks(text);
  if (read_long(text, out)) {
    if (rest != nullptr) *rest = text.substr(KSUI_LONG_LENGTH);
    return out.kind();
  }
  std::uint32_t number = 0;
  auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (rest != nullptr) *rest = text.substr(static_cast<std::size_t>(end - text.data()));
  if (error != std::errc()) {
    out = ksui_invalid();
    return KSUI_INVALID;
  }
  out = ksui_from_number(number);
  return KSUI_NUMBER;
}

bool ssid_parse(std::string_view text, ksui &out, std::int64_t *cloneid) {
  std::string_view rest;
  std::int64_t clone = 0;
  bool good = one_of(ksui_parse(text, out, &rest), {KSUI_NUMBER, KSUI_SAVESET_OLD, KSUI_SAVESET});
  if (good && !rest.empty()) good = cloneid != nullptr && read_cloneid(rest, clone);
  if (!good) {
    out = ksui_invalid();
    return false;
  }
  if (cloneid != nullptr) *cloneid = clone;
  return true;
}

bool volid_parse(std::string_view text, ksui &out) {
  std::string_view rest;
  bool good = one_of(ksui_parse(text, out, &rest), {KSUI_NUMBER, KSUI_VOLUME_OLD, KSUI_VOLUME});
  if (!good || !rest.empty()) {
    out = ksui_invalid();
    return false;
  }
  return true;
}

bool clientid_parse(std::string_view text, ksui &out) {
  if (text.size() == KSUI_LONG_LENGTH && read_long(text, out) && out.kind() == KSUI_CLIENT)
    return true;
  out = ksui_invalid();
  return false;
}

}  // namespace qvr
