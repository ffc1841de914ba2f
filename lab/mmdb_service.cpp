// The media database daemon, version 6 of its protocol.
#include "mmdb_calls.h"

namespace qvr {

bool begin_list(lab_exchange &call) {
  if (call.fault.error) {
    call.out.put_u32(MMDB_FAILED);
    put_told_failure(call);
    return false;
  }
  call.out.put_u32(MMDB_OK);
  if (!call.fault.nodes) return true;
  std::string node("\0\0\0\1\0\0\0\0", 8), nodes;
  for (std::uint32_t i = 0; i < *call.fault.nodes; i++) nodes += node;
  call.out.put_bytes(nodes);
  end_list(call);
  return false;
}

void put_record(lab_exchange &call, const encoded_record &record, bool full) {
  call.records++;
  if (full) {
    call.out.put_shared(record.full());
    return;
  }
  call.out.put_bytes(record.head());
  call.out.put_u32(0);
}

void end_list(lab_exchange &call) {
  call.out.put_bool(false);
}

bool get_text(XDR &in, std::string &text) {
  return in.get_counted(text, 1 << 20);
}

bool get_id(XDR &in, ksui &id) {
  return in.get_bytes(id.bytes.data(), id.bytes.size());
}

bool get_optional_id(XDR &in, ksui &id) {
  bool present = false;
  return in.get_bool(present) && (!present || get_id(in, id));
}

bool get_range(XDR &in, time_bounds &bounds) {
  std::uint64_t from = 0, to = 0;
  if (!in.get_u64(from) || !in.get_u64(to) || !in.get_i64(bounds.count)) return false;
  bounds.from = static_cast<std::int64_t>(from);
  bounds.to = to == 0 || to > INT64_MAX ? INT64_MAX : static_cast<std::int64_t>(to);
  return true;
}

bool get_optional_range(XDR &in, time_bounds &bounds) {
  bool present = false;
  return in.get_bool(present) && (!present || get_range(in, bounds));
}

std::string tell_range(const time_bounds &bounds) {
  json_line line;
  line.add("start", bounds.from).add("end", bounds.to).add("count", bounds.count);
  return line.text();
}

namespace {

constexpr lab_procedure PROCEDURES[] = {
    {0, "NULL", lab_null},
    {53, "mmdb_fetchss_ids", mmdb_fetch_ids},
    {54, "mmdb_get_ss", mmdb_get_ss},
    {55, "mmdb_get_ss_times_client", mmdb_get_ss_times_client},
    {57, "mmdb_get_ss_range", mmdb_get_ss_range},
    {58, "mmdb_get_clients", mmdb_get_clients},
    {63, "mmdb_get_vols_family", mmdb_get_vols_family},
    {64, "mmdb_get_vol_id", mmdb_get_vol_id},
    {65, "mmdb_get_vols_name", mmdb_get_vols_name},
    {68, "mmdb_get_vols_pool", mmdb_get_vols_pool},
    {69, "mmdb_get_vols_barcode", mmdb_get_vols_barcode},
    {70, "mmdb_get_vols_location", mmdb_get_vols_location},
    {76, "mmdb_get_clidmap", mmdb_get_clidmap},
    {78, "mmdb_fetchcvr_ids", mmdb_fetch_ids},
    {90, "mmdb_get_ss_times", mmdb_get_ss_times},
    {96, "mmdb_get_history", mmdb_get_history},
};

}  // namespace

const lab_program MMDB_PROGRAM = {"qvrmmdbd", 390107, 6, PROCEDURES};

}  // namespace qvr
