// The arguments of the media database's procedures that a report calls, and their XDR.
//
// Encoders borrow everything. Decoders put texts and arrays into the arena that the caller gives;
// they are for the server's side. Absent optional items decode to their defaults.
#pragma once

#include <cstdint>
#include <span>
#include <string_view>

#include "attrlist.h"
#include "queries.h"
#include "records.h"
#include "xdr.h"

namespace qvr {

// 53, 78.
struct mmdb_ids_args {
  std::span<const ksui> ids;
  bool full = false;
};
// 55: client, times, full.
struct mmdb_client_times_args {
  std::string_view client;
  std::span<const std::int64_t> times;
  bool full = false;
};
// 90: times, attrs, full.
struct mmdb_times_args {
  std::span<const std::int64_t> times;
  attrlist attrs;
  bool full = false;
};
// 58.
struct mmdb_clients_args {
  std::string_view client;
  std::string_view name;
};
// 63.
struct mmdb_family_args {
  std::string_view family;
  std::string_view type;
  std::uint32_t flagmask = 0;
  std::uint32_t flags = 0;
  bool full = false;
};
// 64.
struct mmdb_vol_id_args {
  ksui volid;
  bool full = false;
};
// 65 and 69: a volume's name or its barcode.
struct mmdb_vol_text_args {
  std::string_view text;
  bool full = false;
};
// 68.
struct mmdb_pool_args {
  std::string_view pool;
  std::uint32_t flagmask = 0;
  std::uint32_t flags = 0;
  bool full = false;
};
// 70.
struct mmdb_location_args {
  std::string_view location;
  mr_range range;
  bool full = false;
};
// 76: either half asks for the other.
struct mmdb_clidmap_args {
  ksui clientid;
  std::string_view clientname;
};
// 54, 57 and 96 take ss_query_t, ss_page_t and history_query_t.

bool xdr_put_args(XDR &xdr, const mmdb_ids_args &args);
bool xdr_get_args(XDR &xdr, arena &page, mmdb_ids_args &args);
bool xdr_put_args(XDR &xdr, const mmdb_client_times_args &args);
bool xdr_get_args(XDR &xdr, arena &page, mmdb_client_times_args &args);
bool xdr_put_args(XDR &xdr, const mmdb_times_args &args);
bool xdr_get_args(XDR &xdr, arena &page, mmdb_times_args &args);
bool xdr_put_args(XDR &xdr, const mmdb_clients_args &args);
bool xdr_get_args(XDR &xdr, arena &page, mmdb_clients_args &args);
bool xdr_put_args(XDR &xdr, const mmdb_family_args &args);
bool xdr_get_args(XDR &xdr, arena &page, mmdb_family_args &args);
bool xdr_put_args(XDR &xdr, const mmdb_vol_id_args &args);
bool xdr_get_args(XDR &xdr, arena &page, mmdb_vol_id_args &args);
bool xdr_put_args(XDR &xdr, const mmdb_vol_text_args &args);
bool xdr_get_args(XDR &xdr, arena &page, mmdb_vol_text_args &args);
bool xdr_put_args(XDR &xdr, const mmdb_pool_args &args);
bool xdr_get_args(XDR &xdr, arena &page, mmdb_pool_args &args);
bool xdr_put_args(XDR &xdr, const mmdb_location_args &args);
bool xdr_get_args(XDR &xdr, arena &page, mmdb_location_args &args);
bool xdr_put_args(XDR &xdr, const mmdb_clidmap_args &args);
bool xdr_get_args(XDR &xdr, arena &page, mmdb_clidmap_args &args);
bool xdr_put_args(XDR &xdr, const ss_query_t &args);
bool xdr_get_args(XDR &xdr, arena &page, ss_query_t &args);
bool xdr_put_args(XDR &xdr, const ss_page_t &args);
bool xdr_get_args(XDR &xdr, arena &page, ss_page_t &args);
bool xdr_put_args(XDR &xdr, const history_query_t &args);
bool xdr_get_args(XDR &xdr, arena &page, history_query_t &args);

}  // namespace qvr
