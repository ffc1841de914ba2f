// Encoded messages and error objects as peers and logs hold them.
#include "fuzz.h"
#include "msg.h"

using namespace qvr;

void fuzz(std::string_view text) {
  strtxt_t message;
  if (strtxt_decode(text, message)) {
    std::string encoded = strtxt_encode(message);
    strtxt_t again;
    if (!strtxt_decode(encoded, again) || strtxt_encode(again) != encoded) std::abort();
    msg_render("C", message);
    msg_render("de_DE", message);
  }
  errobj_t *error = err_from_wire(23007, text);
  std::string wire = err_to_wire(*error);
  // What an error object says of itself must survive the next hop.
  if (err_to_wire(*err_from_wire(error->code, wire)) != wire) std::abort();
}
