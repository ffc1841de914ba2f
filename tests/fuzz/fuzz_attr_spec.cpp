// The language of attribute constraints: any text.
#include <cstring>

#include "attr_spec.h"
#include "fuzz.h"

void fuzz(std::string_view text) {
  using namespace qvr;
  attrlist list;
  const char *refusal = parse_attr_spec(text, list);
  if (refusal != nullptr && std::strlen(refusal) > 129) std::abort();
  for (const attr_t &attr : list) {
    bool negated = attr.name.starts_with('!');
    if (attr.name.empty() || attr.name.size() > ATTR_NAME_MAX + (negated ? 1 : 0)) std::abort();
  }
}
