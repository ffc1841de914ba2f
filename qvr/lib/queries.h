// The questions that a report asks the media database.
//
// Each runs on the calling thread's session. A result holds at least one record, or is empty: then
// mif_last_error() tells a failure from an empty answer. A null text means no such argument.
#pragma once

#include <cstdint>
#include <span>
#include <string_view>

#include "attrlist.h"
#include "records.h"

namespace qvr {

// `full` asks for complete records.
ss_list fetchss_ids(std::span<const ksui> ids, bool full);
ss_list fetchcvr_ids(std::span<const ksui> ids, bool full);
ss_list fetchss_times(std::string_view client, std::span<const std::int64_t> times, bool full);

struct ss_query_t {
  bool all = false;
  std::string_view client;
  std::string_view name;
  attrlist attrs;
  std::int64_t time = 0;
  std::int32_t level = 0;  // level plus 1; 0 is any
  bool full = false;
};
ss_list get_ss_query(const ss_query_t &query);

struct ss_page_t {
  std::string_view client;
  std::string_view name;
  attrlist attrs;
  mr_range range;
  std::int32_t level = 0;  // level plus 1; 0 is any
  attrlist filter;
  ksui last;
  bool full = false;
};
// `more` (when given) receives 0, 1 or 2.
ss_list get_ss_page(const ss_page_t &page, int *more = nullptr);

struct history_query_t {
  ksui ssid;
  std::int64_t clone = 0;
  mr_range range;
  attrlist attrs;
  attrlist filter;
};
hist_list get_history(const history_query_t &query);

vol_list get_vol_id_list(const ksui &volid, bool full);
vol_list get_vol_id(const ksui &volid, bool full);  // at most one record
vol_list get_vols_name(std::string_view name, bool full);
vol_list get_vols_family(std::string_view family, std::string_view type, std::uint32_t mask,
                         std::uint32_t value, bool full);
vol_list get_vols_pool(std::string_view pool, std::uint32_t mask, std::uint32_t value, bool full);
vol_list get_vols_barcode(std::string_view barcode, bool full);
vol_list get_vols_location(std::string_view location, bool full);
// Removes records whose volid is null or invalid.
void drop_bad_vols(vol_list &list);

// A volume of the session's cache: valid until it is evicted. Null when it cannot be fetched.
const vol_t *cached_vol(const ksui &volid);
inline constexpr std::uint32_t MIF_CACHE_NO_LIMIT = 0xffffffff;
void mif_set_cache_limit(std::uint32_t limit);

// One attribute per client: its name and the long form of its id.
attrlist get_client_names();

}  // namespace qvr
