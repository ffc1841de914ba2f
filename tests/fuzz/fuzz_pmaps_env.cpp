// What a parent process, or anybody who sets the environment, says of ports.
#include "fuzz.h"
#include "pmap_cache.h"

using namespace qvr;

void fuzz(std::string_view text) {
  std::vector<pmap_entry_t> entries = pmap_parse(text);
  for (const pmap_entry_t &entry : entries) {
    if (entry.port > 65535) std::abort();
  }
  std::string again = pmap_format(entries);
  if (again.size() > PMAP_TEXT_MAX) std::abort();
  // What is written is read back, up to what fits.
  std::vector<pmap_entry_t> back = pmap_parse(again);
  if (back.size() > entries.size()) std::abort();
  for (std::size_t i = 0; i < back.size(); i++) {
    if (!(back[i] == entries[i])) std::abort();
  }
}
