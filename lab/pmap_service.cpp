// The port mapper, version 2 (RFC 1833, section 3).
#include <algorithm>

#include "lab_exchange.h"
#include "lab_state.h"

namespace qvr {

namespace {

bool get_row(lab_exchange &call, pmap_row &row) {
  if (!call.in.get_u32(row.program) || !call.in.get_u32(row.version) ||
      !call.in.get_u32(row.protocol) || !call.in.get_u32(row.port))
    return false;
  if (call.telling) {
    call.args.add("prog", row.program).add("vers", row.version);
    call.args.add("prot", row.protocol).add("port", row.port);
  }
  return true;
}

bool same_program(const pmap_row &a, const pmap_row &b) {
  return a.program == b.program && a.version == b.version;
}

bool pmap_set(lab_exchange &call) {
  pmap_row row;
  if (!get_row(call, row)) return false;
  std::lock_guard lock(call.lab.pmap_mutex);
  std::vector<pmap_row> &rows = call.lab.pmap;
  auto known = std::find_if(rows.begin(), rows.end(), [&](const pmap_row &other) {
    return same_program(other, row) && other.protocol == row.protocol;
  });
  constexpr std::size_t rows_max = 4096;
  bool done = known == rows.end() ? rows.size() < rows_max : known->port == row.port;
  if (done && known == rows.end()) rows.push_back(row);
  call.out.put_bool(done);
  return true;
}

bool pmap_unset(lab_exchange &call) {
  pmap_row row;
  if (!get_row(call, row)) return false;
  std::lock_guard lock(call.lab.pmap_mutex);
  auto gone = std::erase_if(
      call.lab.pmap, [&](const pmap_row &other) { return same_program(other, row) && !other.own; });
  call.out.put_bool(gone != 0);
  return true;
}

bool pmap_getport(lab_exchange &call) {
  pmap_row row;
  if (!get_row(call, row)) return false;
  std::uint32_t port = 0;
  std::lock_guard lock(call.lab.pmap_mutex);
  for (const pmap_row &other : call.lab.pmap) {
    if (same_program(other, row) && other.protocol == row.protocol) port = other.port;
  }
  if (call.fault.error) port = 0;
  call.out.put_u32(port);
  call.status = "port " + std::to_string(port);
  return true;
}

bool pmap_dump(lab_exchange &call) {
  std::lock_guard lock(call.lab.pmap_mutex);
  for (const pmap_row &row : call.lab.pmap) {
    call.out.put_bool(true);
    for (std::uint32_t word : {row.program, row.version, row.protocol, row.port})
      call.out.put_u32(word);
    call.records++;
  }
  call.out.put_bool(false);
  return true;
}

constexpr lab_procedure PROCEDURES[] = {
    {0, "PMAPPROC_NULL", lab_null},    {1, "PMAPPROC_SET", pmap_set},
    {2, "PMAPPROC_UNSET", pmap_unset}, {3, "PMAPPROC_GETPORT", pmap_getport},
    {4, "PMAPPROC_DUMP", pmap_dump},
};

}  // namespace

const lab_program PMAP_PROGRAM = {"pmap", 100000, 2, PROCEDURES};

}  // namespace qvr
