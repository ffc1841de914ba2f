// Typed identifiers: whatever is accepted has a text that is read as the same identifier.
#include "fuzz.h"
#include "ksui.h"

void fuzz(std::string_view text) {
  using namespace qvr;
  std::string_view rest;
  ksui id, back;
  std::int64_t clone = 0;
  if (ksui_parse(text, id, &rest) != id.kind() || rest.size() > text.size()) std::abort();
  bool set = ssid_parse(text, back, &clone);
  if (set ? back != id : !back.is_invalid()) std::abort();
  bool volume = volid_parse(text, back);
  if (volume ? back != id || !rest.empty() : !back.is_invalid()) std::abort();
  bool client = clientid_parse(text, back);
  if (client ? back != id || (set || volume) : !back.is_invalid()) std::abort();
  if (id.is_invalid()) return;
  std::int32_t kind = ksui_parse(ksui_text(id, ksui_form::long_form), back);
  // The null identifier has only its number for a text.
  if (id.is_null() ? kind != KSUI_NUMBER : back != id) std::abort();
  if (ksui_cmp(id, id) != 0) std::abort();
}
