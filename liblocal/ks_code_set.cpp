#include "ks_code_set.h"

#include <iconv.h>
#include <langinfo.h>

#include <algorithm>
#include <cstring>

namespace qvr {

namespace {

constexpr const char *internal_set = "UTF-8";

bool plain(std::string_view text) {
  return std::all_of(text.begin(), text.end(),
                     [](char c) { return static_cast<unsigned char>(c) < 0x80; });
}

// True for code sets in which a text needs no conversion: the internal one, and the one of the
// "C" locale, which says nothing of bytes above 127.
bool same_set(const char *set) {
  return std::strcmp(set, internal_set) == 0 || std::strcmp(set, "ANSI_X3.4-1968") == 0;
}

std::string convert(std::string_view text, const char *to, const char *from) {
  iconv_t handle = iconv_open(to, from);
  if (handle == reinterpret_cast<iconv_t>(-1)) return std::string(text);
  std::string out(text.size() * 4 + 16, '\0');
  char *in = const_cast<char *>(text.data()), *at = out.data();
  std::size_t left = text.size(), room = out.size();
  bool converted = iconv(handle, &in, &left, &at, &room) != static_cast<std::size_t>(-1) &&
                   iconv(handle, nullptr, nullptr, &at, &room) != static_cast<std::size_t>(-1);
  iconv_close(handle);
  if (!converted) return std::string(text);
  out.resize(out.size() - room);
  return out;
}

}  // namespace

std::string ks_text_to_internal(std::string_view text) {
  const char *set = nl_langinfo(CODESET);
  if (plain(text) || same_set(set)) return std::string(text);
  return convert(text, internal_set, set);
}

std::string ks_path_to_system(std::string_view path) {
  const char *set = nl_langinfo(CODESET);
  if (plain(path) || same_set(set)) return std::string(path);
  return convert(path, set, internal_set);
}

}  // namespace qvr
