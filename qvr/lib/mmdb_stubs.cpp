#include "mmdb_stubs.h"

#include "mmdb_procs.h"

namespace qvr {

namespace {

template <class Reply, class Args>
std::optional<Reply> run(CLIENT &client, mmdb_proc procedure, const Args &args) {
  std::optional<Reply> reply(std::in_place);
  auto encode = [&](XDR &xdr) { return xdr_put_args(xdr, args); };
  auto decode = [&](XDR &xdr) { return xdr_get_reply(xdr, *reply); };
  if (client.call(procedure, encode, decode, MMDB_TIMEOUT) != RPC_SUCCESS) reply.reset();
  return reply;
}

}  // namespace

#define STUB(name, procedure, Args, Reply)                      \
  std::optional<Reply> name(CLIENT &client, const Args &args) { \
    return run<Reply>(client, procedure, args);                 \
  }

STUB(mmdb_fetchss_ids, MMDB_FETCHSS_IDS, mmdb_ids_args, ss_reply)
STUB(mmdb_get_ss, MMDB_GET_SS, ss_query_t, ss_reply)
STUB(mmdb_get_ss_times_client, MMDB_GET_SS_TIMES_CLIENT, mmdb_client_times_args, ss_reply)
STUB(mmdb_get_ss_range, MMDB_GET_SS_RANGE, ss_page_t, ssr_reply)
STUB(mmdb_get_clients, MMDB_GET_CLIENTS, mmdb_clients_args, ss_reply)
STUB(mmdb_get_vols_family, MMDB_GET_VOLS_FAMILY, mmdb_family_args, vol_reply)
STUB(mmdb_get_vol_id, MMDB_GET_VOL_ID, mmdb_vol_id_args, vol_reply)
STUB(mmdb_get_vols_name, MMDB_GET_VOLS_NAME, mmdb_vol_text_args, vol_reply)
STUB(mmdb_get_vols_pool, MMDB_GET_VOLS_POOL, mmdb_pool_args, vol_reply)
STUB(mmdb_get_vols_barcode, MMDB_GET_VOLS_BARCODE, mmdb_vol_text_args, vol_reply)
STUB(mmdb_get_vols_location, MMDB_GET_VOLS_LOCATION, mmdb_location_args, vol_reply)
STUB(mmdb_get_clidmap, MMDB_GET_CLIDMAP, mmdb_clidmap_args, clidmap_reply)
STUB(mmdb_fetchcvr_ids, MMDB_FETCHCVR_IDS, mmdb_ids_args, ss_reply)
STUB(mmdb_get_ss_times, MMDB_GET_SS_TIMES, mmdb_times_args, ss_reply)
STUB(mmdb_get_history, MMDB_GET_HISTORY, history_query_t, hist_reply)

#undef STUB

}  // namespace qvr
