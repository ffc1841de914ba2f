// The file of simulated name service faults.
#include "fault_table.h"
#include "fuzz.h"

using namespace qvr;

void fuzz(std::string_view text) {
  std::vector<fault_t> faults = fault_table_parse(text);
  if (faults.size() > FAULT_LINES_MAX) std::abort();
  for (const fault_t &fault : faults) {
    if (fault.kind != "dnslu" && fault.kind != "rdnslu") std::abort();
    if (fault.what.empty() || fault.effect.empty()) std::abort();
    if (fault.what.size() + fault.effect.size() > FAULT_LINE_MAX) std::abort();
  }
}
