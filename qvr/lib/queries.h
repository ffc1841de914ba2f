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

// Ids or times in one call; longer lists are cut.
inline constexpr std::size_t MMDB_CALL_IDS = 500;
// Records in one call of a range.
inline constexpr std::int64_t MMDB_PAGE_RECORDS = 8192;

// `full` asks for complete records.
ss_list fetchss_ids(std::span<const ksui> ids, bool full);
ss_list fetchcvr_ids(std::span<const ksui> ids, bool full);
ss_list fetchss_id(const ksui &ssid, bool full);  // at most one record
ss_list fetchss_times(std::string_view client, std::span<const std::int64_t> times, bool full);
// At most one record. A client is required.
ss_list ss_by_time_fetch(std::string_view client, std::int64_t savetime, bool full);

struct ss_query_t {
  bool all = false;  // every match; otherwise the newest one before `time`
  std::string_view client;
  std::string_view name;
  attrlist attrs;  // that a record must hold
  std::int64_t time = 0;
  std::int32_t level = 0;  // level plus 1; 0 is any
  bool full = false;
};
// With `all` and nothing else, asks client by client; the last client's records lead.
ss_list get_ss_query(const ss_query_t &query);

struct ss_page_t {
  std::string_view client;
  std::string_view name;
  attrlist attrs;
  mr_range range;          // an end of 0 is no end
  std::int32_t level = 0;  // level plus 1; 0 is any
  attrlist filter;
  ksui last;
  bool full = false;
};
// Follows the pages until the server has no more or the range's count is reached. `more` (when
// given) receives 0, 1 or 2: whether the server has more behind what came, as in ssr_more.
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
vol_list get_vol_id(const ksui &volid, bool full);         // at most one record
vol_list get_vols_name(std::string_view name, bool full);  // no name: all
vol_list get_vols_family(std::string_view family, std::string_view type, std::uint32_t mask,
                         std::uint32_t value, bool full);
vol_list get_vols_pool(std::string_view pool, std::uint32_t mask, std::uint32_t value, bool full);
vol_list get_vols_barcode(std::string_view barcode, bool full);
vol_list get_vols_location(std::string_view location, bool full);
// Removes records whose volid is null or invalid.
void drop_bad_vols(vol_list &list);

// Records of the session's caches: valid until they are evicted. Null when they cannot be fetched,
// or are not there and nobody is to be asked.
const vol_t *cached_vol(const ksui &volid, bool ask = true);
const ss_t *cached_ss(const ksui &ssid);
const ss_t *cached_ss(std::string_view client, std::int64_t savetime);
inline constexpr std::uint32_t MIF_CACHE_NO_LIMIT = 0xffffffff;
inline constexpr std::uint32_t MIF_CACHE_DEFAULT = 10;
// Empties both caches. A limit below 10 is 10.
void mif_set_cache_limit(std::uint32_t limit);

// One attribute per client: its name and the long form of its id, no value without an id.
attrlist get_client_names();
// Sorted, each name once: of the client's save sets, or of all clients when none is given.
vallist get_save_names(std::string_view client, std::string_view name);

}  // namespace qvr
