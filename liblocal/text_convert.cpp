#include "text_convert.h"

#include <iconv.h>
#include <langinfo.h>
#include <strings.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <mutex>

#include "per_thread.h"

namespace qvr {

namespace {

constexpr std::size_t SLICE = 18431;  // bytes converted at once
constexpr std::size_t EXEMPT_MAX = 10;

// One direction of a conversion, kept open per thread: opening costs far more than converting.
class converter {
 public:
  ~converter() { close(); }

  iconv_t open(const char *to, const char *from) {
    if (cd_ != none() && to_ == to && from_ == from) {
      iconv(cd_, nullptr, nullptr, nullptr, nullptr);
      return cd_;
    }
    close();
    cd_ = iconv_open(to, from);
    if (cd_ == none()) cannot_convert(to, from);
    to_ = to;
    from_ = from;
    return cd_;
  }

 private:
  static iconv_t none() { return reinterpret_cast<iconv_t>(-1); }

  void close() {
    if (cd_ != none()) iconv_close(cd_);
    cd_ = none();
  }

  [[noreturn]] static void cannot_convert(const char *to, const char *from) {
    std::string line = std::string("Cannot convert text from the code set ") + from + " to " + to +
                       ": " + std::strerror(errno) + "\n";
    [[maybe_unused]] ssize_t written = write(STDERR_FILENO, line.data(), line.size());
    std::_Exit(1);
  }

  iconv_t cd_ = none();
  std::string to_, from_;
};

// The code set of the "C" locale.
bool locale_is_c() {
  const char *name = nl_langinfo(CODESET);
  return std::strcmp(name, "646") == 0 || std::strcmp(name, "ANSI_X3.4-1968") == 0;
}

// The bytes of the well-formed character at the start of `text`, or 0.
std::size_t utf8_length(std::string_view text) {
  auto byte = [&](std::size_t at) -> unsigned {
    return at < text.size() ? static_cast<unsigned char>(text[at]) : 0u;
  };
  auto follows = [&](std::size_t at) { return (byte(at) & 0xC0) == 0x80; };
  unsigned first = byte(0), second = byte(1);
  if (first < 0x80) return 1;
  if (first < 0xC2 || first > 0xF4 || !follows(1)) return 0;
  if (first < 0xE0) return 2;
  if ((first == 0xE0 && second < 0xA0) || (first == 0xED && second > 0x9F) || !follows(2)) return 0;
  if (first < 0xF0) return 3;
  if ((first == 0xF0 && second < 0x90) || (first == 0xF4 && second > 0x8F) || !follows(3)) return 0;
  return 4;
}

void append_latin1(char c, std::string &store) {
  auto byte = static_cast<unsigned char>(c);
  if (byte < 0x80) {
    store += c;
  } else {
    store += static_cast<char>(0xC0 | byte >> 6);
    store += static_cast<char>(0x80 | (byte & 0x3F));
  }
}

// How many bytes to leave out where the source cannot be converted: a whole character of UTF-8.
std::size_t unshown_bytes(std::string_view text, bool from_utf8) {
  std::size_t length = from_utf8 ? utf8_length(text) : 1;
  return length == 0 ? 1 : length;
}

// False when something did not convert and became "?".
bool convert(std::string_view text, std::string &store, iconv_t cd, bool from_utf8) {
  bool whole = true;
  std::array<char, 4096> piece;
  while (!text.empty()) {
    std::size_t slice = std::min(text.size(), SLICE);
    char *in = const_cast<char *>(text.data());  // iconv takes it so and leaves it alone
    std::size_t in_left = slice;
    while (in_left > 0) {
      char *out = piece.data();
      std::size_t out_left = piece.size();
      std::size_t done = iconv(cd, &in, &in_left, &out, &out_left);
      int reason = errno;
      store.append(piece.data(), piece.size() - out_left);
      if (done != static_cast<std::size_t>(-1) || reason == E2BIG) continue;
      // A character that goes on behind the slice starts the next slice.
      if (reason == EINVAL && slice < text.size()) break;
      whole = false;
      std::size_t skip = std::min(unshown_bytes({in, in_left}, from_utf8), in_left);
      store += '?';
      in += skip;
      in_left -= skip;
    }
    text.remove_prefix(slice - in_left);
  }
  char *out = piece.data();
  std::size_t out_left = piece.size();
  iconv(cd, nullptr, nullptr, &out, &out_left);  // back to the initial shift state
  store.append(piece.data(), piece.size() - out_left);
  return whole;
}

struct converters_t {
  converter out, in;
};

bool to_locale(std::string_view text, std::string &store) {
  iconv_t cd = per_thread<converters_t>::get().out.open(locale_codeset(), "UTF-8");
  store.clear();
  return convert(text, store, cd, true);
}

bool from_locale(std::string_view text, std::string &store) {
  iconv_t cd = per_thread<converters_t>::get().in.open("UTF-8", locale_codeset());
  store.clear();
  return convert(text, store, cd, false);
}

std::string name_by(bool (*conversion)(std::string_view, std::string &), std::string_view name) {
  std::string store;
  bool plain = text_is_ascii(name) || locale_is_utf8() || locale_is_c();
  return plain || !conversion(name, store) ? std::string(name) : store;
}

struct exempt_list_t {
  std::mutex guard;  // of what follows
  std::array<int, EXEMPT_MAX> fds;
  std::size_t count = 0;
};

exempt_list_t &exempt_list() {
  static exempt_list_t list;
  return list;
}

}  // namespace

bool text_is_ascii(std::string_view text) {
  std::size_t at = 0;
  std::uint64_t word;
  for (; text.size() - at >= sizeof word; at += sizeof word) {
    std::memcpy(&word, text.data() + at, sizeof word);
    if ((word & 0x8080808080808080u) != 0) return false;
  }
  for (; at < text.size(); at++) {
    if (static_cast<unsigned char>(text[at]) >= 0x80) return false;
  }
  return true;
}

const char *locale_codeset() {
  return locale_is_c() ? "ISO8859-1" : nl_langinfo(CODESET);
}

bool locale_is_utf8() {
  const char *name = nl_langinfo(CODESET);
  return strcasecmp(name, "UTF-8") == 0 || strcasecmp(name, "utf8") == 0;
}

std::string_view text_to_locale(std::string_view text, std::string &store) {
  if (text_is_ascii(text) || locale_is_utf8()) return text;
  to_locale(text, store);
  return store;
}

std::string_view text_from_locale(std::string_view text, std::string &store) {
  if (text_is_ascii(text) || locale_is_utf8()) return text;
  from_locale(text, store);
  return store;
}

std::string name_to_locale(std::string_view name) {
  return name_by(to_locale, name);
}

std::string name_from_locale(std::string_view name) {
  return name_by(from_locale, name);
}

bool utf8_valid(std::string_view text) {
  while (!text.empty()) {
    std::size_t length = utf8_length(text);
    if (length == 0) return false;
    text.remove_prefix(length);
  }
  return true;
}

std::string_view utf8_made_valid(std::string_view text, std::string &store) {
  if (text_is_ascii(text) || utf8_valid(text)) return text;
  if (!locale_is_utf8()) return text_from_locale(text, store);
  store.clear();
  for (char c : text) append_latin1(c, store);
  return store;
}

bool text_exempt_fd(int fd) {
  exempt_list_t &list = exempt_list();
  std::lock_guard hold(list.guard);
  auto *end = list.fds.begin() + list.count;
  if (std::find(list.fds.begin(), end, fd) != end) return true;
  if (list.count == list.fds.size()) return false;
  list.fds[list.count++] = fd;
  return true;
}

void text_unexempt_fd(int fd) {
  exempt_list_t &list = exempt_list();
  std::lock_guard hold(list.guard);
  auto *end = list.fds.begin() + list.count;
  auto *at = std::find(list.fds.begin(), end, fd);
  if (at == end) return;
  *at = *(end - 1);
  list.count--;
}

bool text_converts_fd(int fd) {
  const bool turned = std::getenv("QVR_CATCH_CHILD_STDOUT") != nullptr;
  exempt_list_t &list = exempt_list();
  std::lock_guard hold(list.guard);
  auto *end = list.fds.begin() + list.count;
  return (std::find(list.fds.begin(), end, fd) != end) == turned;
}

std::size_t text_to_file(std::FILE *stream, std::string_view text) {
  if (text_is_ascii(text) || locale_is_utf8() || !text_converts_fd(fileno(stream))) {
    return std::fwrite(text.data(), 1, text.size(), stream);
  }
  std::string store;
  text = text_to_locale(text, store);
  return std::fwrite(text.data(), 1, text.size(), stream);
}

}  // namespace qvr
