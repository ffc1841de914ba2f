// Messages in the XML form.
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "msg.h"
#include "msg_rings.h"

using namespace qvr;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
  std::string_view text(reinterpret_cast<const char *>(data), size);
  if (strtxt_t *message = strtxt_from_xml(text)) {
    std::string xml = strtxt_to_xml(*message);
    strtxt_t *again = strtxt_from_xml(xml);
    if (again == nullptr || strtxt_to_xml(*again) != xml) std::abort();
    strtxt_release(message);
    strtxt_release(again);
  }
  msg_render_xml("C", text);
  return 0;
}
