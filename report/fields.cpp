#include "fields.h"

#include <strings.h>

#include "debug_words.h"

namespace qvr {

const mr_t *rptdata_find(field_table table, std::string_view word) {
  while (word.size() > 1 && word.back() == ' ') word.remove_suffix(1);
  for (const mr_t &field : table) {
    if (field.mr_key.size() == word.size() && !word.empty() &&
        strncasecmp(field.mr_key.data(), word.data(), word.size()) == 0) {
      return &field;
    }
  }
  KS_DEBUG(1, "rptdata_find: Cannot find \"%s\"\n", std::string(word).c_str());
  return nullptr;
}

}  // namespace qvr
