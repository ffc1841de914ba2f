// The language of attribute constraints: any text.
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include "attr_spec.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
  using namespace qvr;
  std::string_view text(reinterpret_cast<const char *>(data), size);
  attrlist list;
  const char *refusal = parse_attr_spec(text, list);
  if (refusal != nullptr && std::strlen(refusal) > 129) std::abort();
  for (const attr_t &attr : list) {
    bool negated = attr.name.starts_with('!');
    if (attr.name.empty() || attr.name.size() > ATTR_NAME_MAX + (negated ? 1 : 0)) std::abort();
  }
  return 0;
}
