// What the port mapper of this host answered: a list for each thread, and one for the process.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace qvr {

struct pmap_entry_t {
  std::uint64_t program = 0;
  std::uint64_t version = 0;
  std::uint64_t protocol = 0;  // an IPPROTO number
  std::uint64_t port = 0;      // host order
  bool operator==(const pmap_entry_t &) const = default;
};

// The environment variable that carries a thread's list to child processes.
inline constexpr const char *PMAP_VARIABLE = "QVRENV_PMAPS";
inline constexpr std::size_t PMAP_TEXT_MAX = 12288;  // bytes of its value

// The groups of "{program,version,protocol,port}" in decimal up to the first that is malformed.
std::vector<pmap_entry_t> pmap_parse(std::string_view text);
// The same back; entries that do not fit in PMAP_TEXT_MAX are left out.
std::string pmap_format(const std::vector<pmap_entry_t> &entries);

// The port of the three keys, 0 when it is not known. Drops both lists first when 30 minutes have
// passed since the process's list was last cleared. Any thread, as all below.
std::uint16_t pmap_cache_find(std::uint32_t program, std::uint32_t version, int protocol);
// Keeps an answer in both lists; only programs that are cacheable, and only for TCP. `exported`
// also rewrites the environment variable, which no other thread may read meanwhile.
void pmap_cache_add(const pmap_entry_t &entry, bool exported = false);
bool pmap_cacheable(std::uint64_t program);
// The version and port that the process last saw of a cacheable program; port 0 before the first.
pmap_entry_t pmap_last_seen(std::uint64_t program);

// Empties the calling thread's list and the process's.
void pmap_cache_clear();
// From now on nothing is found and nothing is kept.
void pmap_cache_disable();
// Turns the process's list on or off. At start it is on, unless the marker file
// "qvrportcachedisable" is in the debug directory.
void pmap_cache_set_global(bool on);

// Back to the state of a new process; the calling thread's list as well. For tests.
void pmap_cache_forget();

}  // namespace qvr
