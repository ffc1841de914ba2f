#include "rpc_names.h"

#include <netdb.h>
#include <strings.h>

#include <map>
#include <mutex>
#include <string>

#include "immortal.h"

namespace qvr {

namespace {

struct rpc_name_row_t {
  const char *name;
  std::uint32_t program;
};

constexpr rpc_name_row_t rows[] = {
    {"qvrportmapper", 100000}, {"qvrd", 390103},     {"qvrmmd", 390104},   {"qvrindexd", 390105},
    {"qvrmmdbd", 390107},      {"qvrd", 390109},     {"qvrd", 390110},     {"qvrsnmd", 390111},
    {"qvrexecd", 390113},      {"qvrexec", 390113},  {"qvrdispd", 390114}, {"qvrd", 390120},
    {"qvrmmgd", 390430},       {"qvrlcpd", 390429},  {"qvrjobd", 390433},  {"qvrjobd", 390434},
    {"qvrexecd", 390435},      {"qvrexecd", 390436}, {"qvrcpd", 390437},   {"qvrlogd", 390438},
    {"auth_proxyd", 390460},
};

// What the host's database said, by number; an empty name stands for none. It is read once for
// each program: debug lines ask for names often.
struct asked_t {
  std::mutex lock;  // guards the map
  std::map<std::uint32_t, std::string> names;
};

asked_t &asked() {
  static immortal<asked_t> the_names;
  return *the_names;
}

constexpr std::size_t database_buffer = 4096;

}  // namespace

const char *rpc_program_name(std::uint32_t program) {
  for (const rpc_name_row_t &row : rows) {
    if (row.program == program) return row.name;
  }
  asked_t &all = asked();
  std::lock_guard hold(all.lock);
  auto [place, fresh] = all.names.try_emplace(program);
  if (fresh) {
    rpcent entry, *found = nullptr;
    char buffer[database_buffer];
    int rc = getrpcbynumber_r(static_cast<int>(program), &entry, buffer, sizeof buffer, &found);
    if (rc == 0 && found != nullptr) place->second = found->r_name;
  }
  return place->second.empty() ? nullptr : place->second.c_str();
}

std::uint32_t rpc_program_number(const char *name) {
  for (const rpc_name_row_t &row : rows) {
    if (strcasecmp(row.name, name) == 0) return row.program;
  }
  rpcent entry, *found = nullptr;
  char buffer[database_buffer];
  int rc = getrpcbyname_r(name, &entry, buffer, sizeof buffer, &found);
  return rc == 0 && found != nullptr ? static_cast<std::uint32_t>(found->r_number) : 0;
}

}  // namespace qvr
