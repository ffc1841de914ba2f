// The file of simulated name service faults.
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "fault_table.h"

using namespace qvr;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
  std::string_view text(reinterpret_cast<const char *>(data), size);
  std::vector<fault_t> faults = fault_table_parse(text);
  if (faults.size() > FAULT_LINES_MAX) std::abort();
  for (const fault_t &fault : faults) {
    if (fault.kind != "dnslu" && fault.kind != "rdnslu") std::abort();
    if (fault.what.empty() || fault.effect.empty()) std::abort();
    if (fault.what.size() + fault.effect.size() > FAULT_LINE_MAX) std::abort();
  }
  return 0;
}
