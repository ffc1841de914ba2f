// Procedures of the media database by what they ask for, and what they share.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "lab_catalogue.h"
#include "lab_exchange.h"

namespace qvr {

constexpr std::uint32_t MMDB_OK = 2, MMDB_FAILED = 4, MMDB_NO_ENTRY = 32;
// More identifiers or times than any call carries.
constexpr std::uint32_t MMDB_LIST_MAX = 1 << 20;

bool mmdb_fetch_ids(lab_exchange &call);
bool mmdb_get_ss(lab_exchange &call);
bool mmdb_get_ss_times_client(lab_exchange &call);
bool mmdb_get_ss_times(lab_exchange &call);
bool mmdb_get_ss_range(lab_exchange &call);
bool mmdb_get_clients(lab_exchange &call);
bool mmdb_get_clidmap(lab_exchange &call);
bool mmdb_get_vols_family(lab_exchange &call);
bool mmdb_get_vol_id(lab_exchange &call);
bool mmdb_get_vols_name(lab_exchange &call);
bool mmdb_get_vols_pool(lab_exchange &call);
bool mmdb_get_vols_barcode(lab_exchange &call);
bool mmdb_get_vols_location(lab_exchange &call);
bool mmdb_get_history(lab_exchange &call);

// Puts the status word. True when the list may follow; a fault rule may have put a failure, or a
// list of empty nodes that takes the list's place.
bool begin_list(lab_exchange &call);
// A list node with the record as it lies, whole or without its last array.
void put_record(lab_exchange &call, const encoded_record &record, bool full);
void end_list(lab_exchange &call);

bool get_text(XDR &in, std::string &text);
bool get_id(XDR &in, ksui &id);
// A null identifier when none is there.
bool get_optional_id(XDR &in, ksui &id);

// Bounds of a time range, ends included; an absent upper end is the greatest time.
struct time_bounds {
  std::int64_t from = 0, to = INT64_MAX;
  std::int64_t count = 0;  // 0: no limit
};
bool get_range(XDR &in, time_bounds &bounds);
bool get_optional_range(XDR &in, time_bounds &bounds);
std::string tell_range(const time_bounds &bounds);

}  // namespace qvr
