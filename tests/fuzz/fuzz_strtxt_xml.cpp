// Messages in the XML form.
#include "fuzz.h"
#include "msg.h"
#include "msg_rings.h"

using namespace qvr;

void fuzz(std::string_view text) {
  if (strtxt_t *message = strtxt_from_xml(text)) {
    std::string xml = strtxt_to_xml(*message);
    strtxt_t *again = strtxt_from_xml(xml);
    if (again == nullptr || strtxt_to_xml(*again) != xml) std::abort();
    strtxt_release(message);
    strtxt_release(again);
  }
  msg_render_xml("C", text);
}
