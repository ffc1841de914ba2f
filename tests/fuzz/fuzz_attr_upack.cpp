// Any text unpacks to a list that packs to a text which unpacks to the same list.
#include "attrlist.h"
#include "fuzz.h"

void fuzz(std::string_view input) {
  qvr::attrlist list;
  if (qvr::attr_upack(input, list) != nullptr) {
    if (!input.empty()) std::abort();
    return;
  }
  std::string packed;
  if (qvr::attr_pack(list, packed) == list.empty()) std::abort();
  if (list.empty()) return;
  qvr::attrlist again;
  if (qvr::attr_upack(packed, again) != nullptr || again != list) std::abort();

  std::string shown;
  for (const qvr::attr_t &attr : list) {
    qvr::attr_print(shown, 80, attr, 0, input.size() % 16);
    qvr::attr_quote(attr.name, input.size() % 5);
  }
}
