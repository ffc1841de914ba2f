#include "catalogue.h"

#include <dirent.h>
#include <nl_types.h>
#include <strings.h>
#include <sys/stat.h>

#include <array>
#include <cerrno>
#include <clocale>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <mutex>
#include <vector>

#include "immortal.h"
#include "install_paths.h"
#include "msg.h"
#include "msg_rings.h"

namespace qvr {

namespace {

constexpr int DEFAULT_SET_SIZE = 10000;
constexpr std::size_t CATALOGUE_ROWS = 10;  // the table starts with these and grows by them

struct catalogue_row_t {
  std::vector<std::string> names;  // the name of the locale and its aliases
  nl_catd catalogue = nullptr;
  catalogue_header_t header;
  bool active = false;
};

using catalogue_table_t = std::vector<catalogue_row_t>;

// Row 0 is the built-in English.
catalogue_row_t english_row() {
  catalogue_row_t row;
  row.names = {"C", "en"};
  return row;
}

nl_catd const NO_CATALOGUE = reinterpret_cast<nl_catd>(-1);

std::string without_codeset(const std::string &name) {
  return name.substr(0, name.rfind('.'));
}

catalogue_row_t open_catalogue(const std::string &directory, const std::string &locale,
                               const std::string &file) {
  catalogue_row_t row;
  row.names.push_back(locale);
  if (without_codeset(locale) != locale) row.names.push_back(without_codeset(locale));
  std::string path = directory;
  path += locale;
  path += '/';
  path += file;
  nl_catd catalogue = catopen(path.c_str(), 0);
  if (catalogue == NO_CATALOGUE) return row;
  row.catalogue = catalogue;
  row.header = catalogue_parse_header(catgets(catalogue, 1, 1, ""), catgets(catalogue, 1, 2, ""),
                                      catgets(catalogue, 1, 4, ""));
  row.active = !row.header.stamp.empty();
  return row;
}

bool is_directory(const std::string &path) {
  struct stat status {};
  return stat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
}

catalogue_table_t read_table() {
  catalogue_table_t table;
  table.reserve(CATALOGUE_ROWS);
  table.push_back(english_row());
  std::string directory = install_catalogues();
  if (directory.back() != '/') directory += '/';
  const char *named = std::getenv("QVRCATALOGNAME");
  std::string file = named != nullptr && *named != '\0' ? named : "vaultlin.cat";
  std::unique_ptr<DIR, int (*)(DIR *)> entries(opendir(directory.c_str()), closedir);
  if (!entries) return table;
  while (const dirent *entry = readdir(entries.get())) {
    std::string name = entry->d_name;
    if (name == "." || name == ".." || !is_directory(directory + name)) continue;
    if (table.size() == table.capacity()) table.reserve(table.size() + CATALOGUE_ROWS);
    table.push_back(open_catalogue(directory, name, file));
  }
  return table;
}

// A table, once made, stays: texts point into its catalogues. `mutex` guards the list; the table in
// use is its last.
struct catalogue_tables_t {
  std::mutex mutex;
  std::vector<std::unique_ptr<const catalogue_table_t>> tables;
};

catalogue_tables_t &all_tables() {
  static immortal<catalogue_tables_t> tables;
  return *tables;
}

const catalogue_table_t &current_table() {
  catalogue_tables_t &all = all_tables();
  std::lock_guard lock(all.mutex);
  if (all.tables.empty()) {
    all.tables.push_back(std::make_unique<const catalogue_table_t>(read_table()));
  }
  return *all.tables.back();
}

const catalogue_row_t *find_row(const catalogue_table_t &table, std::string_view name) {
  for (const catalogue_row_t &row : table) {
    for (const std::string &known : row.names) {
      if (known == name) return &row;
    }
  }
  return nullptr;
}

bool same_name(std::string_view a, std::string_view b) {
  return a.size() == b.size() && strncasecmp(a.data(), b.data(), a.size()) == 0;
}

// The ring of looked-up texts that all threads share; `mutex` guards it.
constexpr std::size_t LOOKUP_RING = 200, LOOKUP_BYTES = 6144;
struct lookup_ring_t {
  std::mutex mutex;
  std::unique_ptr<char[]> block;
  std::size_t next = 0;
};

const char *lookup_copy(const char *text) {
  static immortal<lookup_ring_t> the_ring;
  lookup_ring_t &ring = *the_ring;
  std::lock_guard lock(ring.mutex);
  if (!ring.block) ring.block = std::make_unique_for_overwrite<char[]>(LOOKUP_RING * LOOKUP_BYTES);
  char *buffer = ring.block.get() + ring.next * LOOKUP_BYTES;
  ring.next = (ring.next + 1) % LOOKUP_RING;
  std::size_t size = strnlen(text, LOOKUP_BYTES - 1);
  std::memcpy(buffer, text, size);
  buffer[size] = '\0';
  return buffer;
}

}  // namespace

bool catalogue_is_english(std::string_view locale) {
  if (locale.empty()) return true;
  for (std::string_view name : {"C", "en_US", "en_US.UTF-8", "en_US.utf8"}) {
    if (same_name(locale, name)) return true;
  }
  constexpr std::string_view language = "english";
  for (std::size_t at = 0; at + language.size() <= locale.size(); at++) {
    if (same_name(locale.substr(at, language.size()), language)) return true;
  }
  return false;
}

catalogue_header_t catalogue_parse_header(const char *stamp, const char *set_count,
                                          const char *version) {
  catalogue_header_t header;
  std::array<char, 20> word{};
  if (std::sscanf(stamp, "QVRYOLGMT:%19s:", word.data()) == 1) header.stamp = word.data();
  word = {};
  if (std::sscanf(set_count, "QVRSETCOUNT:%19s:", word.data()) == 1) {
    int size = std::atoi(word.data());
    header.set_size = size < 1 ? DEFAULT_SET_SIZE : size;
  }
  std::array<char, 256> file{};
  std::array<char, 40> revision{};
  if (std::sscanf(version, "$Id: %255s %39s", file.data(), revision.data()) == 2) {
    header.version = revision.data();
  }
  return header;
}

const char *catalogue_find(std::int32_t id, const char *locale, const char *default_text) {
  if (id < 1) return default_text;
  if (locale == nullptr) locale = std::setlocale(LC_MESSAGES, nullptr);
  std::string_view name = locale != nullptr ? locale : "";
  if (catalogue_is_english(name)) return default_text;
  int kept = errno;
  const catalogue_table_t &table = current_table();
  const catalogue_row_t *row = find_row(table, name.substr(0, name.rfind('.')));
  const char *text = default_text;
  if (row != nullptr && row->active) {
    catalogue_place_t place = catalogue_place(id, row->header.set_size);
    text = catgets(row->catalogue, place.set, place.message, default_text);
  }
  errno = kept;
  return text;
}

void catalogue_rescan() {
  catalogue_tables_t &all = all_tables();
  auto table = std::make_unique<const catalogue_table_t>(read_table());
  std::lock_guard lock(all.mutex);
  all.tables.push_back(std::move(table));
}

const char *catalog_lookup(std::int32_t id, const char *locale, const char *default_text) {
  const char *text = catalogue_find(id, locale, default_text);
  return text == default_text ? default_text : lookup_copy(text);
}

const char *catalog_text(std::int32_t id, const char *default_text) {
  const char *text = catalogue_find(id, nullptr, default_text);
  if (text == nullptr) return nullptr;
  char *buffer = msg_small_buffer();
  std::size_t size = strnlen(text, MSG_SMALL_BYTES - 1);
  std::memcpy(buffer, text, size);
  buffer[size] = '\0';
  return buffer;
}

}  // namespace qvr
