// The client side of the media database's procedures: one stub a procedure, one RPC call a stub.
//
// Each writes its arguments, waits at most 25 seconds for the reply and reads it. Nothing comes
// back when the call itself failed; the handle then holds the reason. The handle's thread only.
#pragma once

#include <chrono>
#include <optional>

#include "client.h"
#include "mmdb_args.h"
#include "mmdb_replies.h"

namespace qvr {

inline constexpr std::chrono::microseconds MMDB_TIMEOUT = std::chrono::seconds(25);

std::optional<ss_reply> mmdb_fetchss_ids(CLIENT &client, const mmdb_ids_args &args);
std::optional<ss_reply> mmdb_get_ss(CLIENT &client, const ss_query_t &args);
std::optional<ss_reply> mmdb_get_ss_times_client(CLIENT &client,
                                                 const mmdb_client_times_args &args);
std::optional<ssr_reply> mmdb_get_ss_range(CLIENT &client, const ss_page_t &args);
std::optional<ss_reply> mmdb_get_clients(CLIENT &client, const mmdb_clients_args &args);
std::optional<vol_reply> mmdb_get_vols_family(CLIENT &client, const mmdb_family_args &args);
std::optional<vol_reply> mmdb_get_vol_id(CLIENT &client, const mmdb_vol_id_args &args);
std::optional<vol_reply> mmdb_get_vols_name(CLIENT &client, const mmdb_vol_text_args &args);
std::optional<vol_reply> mmdb_get_vols_pool(CLIENT &client, const mmdb_pool_args &args);
std::optional<vol_reply> mmdb_get_vols_barcode(CLIENT &client, const mmdb_vol_text_args &args);
std::optional<vol_reply> mmdb_get_vols_location(CLIENT &client, const mmdb_location_args &args);
std::optional<clidmap_reply> mmdb_get_clidmap(CLIENT &client, const mmdb_clidmap_args &args);
std::optional<ss_reply> mmdb_fetchcvr_ids(CLIENT &client, const mmdb_ids_args &args);
std::optional<ss_reply> mmdb_get_ss_times(CLIENT &client, const mmdb_times_args &args);
std::optional<hist_reply> mmdb_get_history(CLIENT &client, const history_query_t &args);

}  // namespace qvr
