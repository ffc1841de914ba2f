// The message catalogues of the installation, one a locale (catopen, catgets: POSIX).
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace qvr {

// The text of `id` for `locale` (null: the process's), or `default_text`. The catalogue's texts lie
// in memory for the life of the process, so that the result needs no copy. `errno` is kept. Any
// thread.
const char *catalogue_find(std::int32_t id, const char *locale, const char *default_text);

// True for the locales whose language the default texts are in.
bool catalogue_is_english(std::string_view locale);

// What a catalogue says of itself in its set 1.
struct catalogue_header_t {
  std::string stamp;
  int set_size = 10000;
  std::string version;
};
catalogue_header_t catalogue_parse_header(const char *stamp, const char *set_count,
                                          const char *version);

// Where message `id` lies in a catalogue of `set_size` messages a set.
struct catalogue_place_t {
  int set;
  int message;
};
constexpr catalogue_place_t catalogue_place(std::int32_t id, int set_size) {
  int set = (id - 1) / set_size + 1;
  return {set, id - (set - 1) * set_size};
}

// Reads the catalogue directory again. For programs that change where catalogues are, and tests;
// texts found earlier stay valid.
void catalogue_rescan();

}  // namespace qvr
