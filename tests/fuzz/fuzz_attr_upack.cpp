// Any text unpacks to a list that packs to a text which unpacks to the same list.
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include "attrlist.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
  std::string_view input(reinterpret_cast<const char *>(data), size);
  qvr::attrlist list;
  if (qvr::attr_upack(input, list) != nullptr) {
    if (!input.empty()) std::abort();
    return 0;
  }
  std::string packed;
  if (qvr::attr_pack(list, packed) == list.empty()) std::abort();
  if (list.empty()) return 0;
  qvr::attrlist again;
  if (qvr::attr_upack(packed, again) != nullptr || again != list) std::abort();

  std::string shown;
  for (const qvr::attr_t &attr : list) {
    qvr::attr_print(shown, 80, attr, 0, size % 16);
    qvr::attr_quote(attr.name, size % 5);
  }
  return 0;
}
