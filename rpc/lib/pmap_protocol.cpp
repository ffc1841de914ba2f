#include "pmap_protocol.h"

#include <chrono>

namespace qvr {

namespace {

constexpr std::chrono::seconds GETPORT_TIMEOUT{25};
constexpr std::chrono::seconds DUMP_TIMEOUT{20};
constexpr std::size_t DUMP_MAX = 65536;

}  // namespace

bool xdr_put_pmap(XDR &xdr, const pmap_entry_t &entry) {
  return xdr.put_u32(static_cast<std::uint32_t>(entry.program)) &&
         xdr.put_u32(static_cast<std::uint32_t>(entry.version)) &&
         xdr.put_u32(static_cast<std::uint32_t>(entry.protocol)) &&
         xdr.put_u32(static_cast<std::uint32_t>(entry.port));
}

bool xdr_get_pmap(XDR &xdr, pmap_entry_t &entry) {
  std::uint32_t program, version, protocol, port;
  if (!xdr.get_u32(program) || !xdr.get_u32(version) || !xdr.get_u32(protocol) ||
      !xdr.get_u32(port)) {
    return false;
  }
  entry = {program, version, protocol, port};
  return true;
}

bool xdr_get_pmap_list(XDR &xdr, function_view<void(const pmap_entry_t &)> take) {
  for (std::size_t i = 0; i <= DUMP_MAX; i++) {
    bool follows;
    if (!xdr.get_bool(follows)) return false;
    if (!follows) return true;
    if (i == DUMP_MAX) return false;
    pmap_entry_t entry;
    if (!xdr_get_pmap(xdr, entry)) return false;
    take(entry);
  }
  return false;
}

clnt_stat pmap_call_getport(CLIENT &client, const pmap_entry_t &wanted, std::uint16_t &port) {
  std::uint32_t word = 0;
  auto encode = [&](XDR &xdr) { return xdr_put_pmap(xdr, wanted); };
  auto decode = [&](XDR &xdr) { return xdr.get_u32(word); };
  clnt_stat status = client.call(PMAPPROC_GETPORT, encode, decode, GETPORT_TIMEOUT);
  port = static_cast<std::uint16_t>(word);
  return status;
}

clnt_stat pmap_call_dump(CLIENT &client, function_view<void(const pmap_entry_t &)> take) {
  auto encode = [](XDR &) { return true; };
  auto decode = [&](XDR &xdr) { return xdr_get_pmap_list(xdr, take); };
  return client.call(PMAPPROC_DUMP, encode, decode, DUMP_TIMEOUT);
}

}  // namespace qvr
