// The table of simulated name service faults.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace qvr {

inline constexpr std::size_t FAULT_LINE_MAX = 1024;   // characters of a line that count
inline constexpr std::size_t FAULT_LINES_MAX = 4096;  // lines that are kept

// A line: "dnslu" or "rdnslu", a host name or address ("*" for any address), and what happens.
struct fault_t {
  std::string kind;
  std::string what;
  std::string effect;
};

// The lines of a table's text that are configuration; the others are told at debug level 7.
std::vector<fault_t> fault_table_parse(std::string_view text);
// The first line for this look-up, or null. Reads the installation's file at the first use; the
// result lasts as long as the process. Any thread.
const fault_t *fault_of_host(const char *host);
const fault_t *fault_of_address(const char *address);

}  // namespace qvr
