// Save sets by their identifiers or save times.
#include <algorithm>

#include "debug_words.h"
#include "mmdb_stubs.h"
#include "queries.h"
#include "take_list.h"

namespace qvr {

namespace {

using id_procedure = std::optional<ss_reply> (*)(CLIENT &, const mmdb_ids_args &);

// Runs `fetch` on pieces of what one call may carry. A piece that fails ends the work with nothing;
// one that is empty without an error is passed over.
template <class Item, class Fetch>
ss_list in_pieces(std::span<const Item> items, Fetch fetch) {
  if (items.size() <= MMDB_CALL_IDS) return fetch(items);
  ss_list all;
  for (std::size_t at = 0; at < items.size(); at += MMDB_CALL_IDS) {
    ss_list piece = fetch(items.subspan(at, std::min(MMDB_CALL_IDS, items.size() - at)));
    if (piece.empty() && mif_get().mif_error.code != 0) return {};
    all.append(std::move(piece));
  }
  return all;
}

// Connects to the catalogue on storage; false leaves the error in the session.
bool storage_open(mif_t &mif) {
  return mif_connect() == MIF_CONNECTED && mif.mif_catalog != nullptr;
}

ss_list by_ids(std::span<const ksui> ids, bool full, id_procedure procedure) {
  return in_pieces(ids, [&](std::span<const ksui> piece) {
    return mif_run<ss_list>([&](mif_t &mif) {
      return take_ss_list(mif, procedure(*mif.mif_clnt, {piece, full}));
    });
  });
}

std::optional<ss_reply> times_call(CLIENT &client, std::string_view name,
                                   std::span<const std::int64_t> times, bool full) {
  if (name.empty()) {
    auto reply = mmdb_get_ss_times(client, {times, {}, full});
    if (reply || client.last_error().status != RPC_PROCUNAVAIL) return reply;
    name = {};
  }
  return mmdb_get_ss_times_client(client, {name, times, full});
}

}  // namespace

ss_list fetchss_ids(std::span<const ksui> ids, bool full) {
  if (ids.empty()) return {};
  mif_t &mif = mif_get();
  if (mif.mif_storage) {
    if (storage_open(mif)) return mif.mif_catalog->ids(ids);
    KS_DEBUG(1, "fetchss_ids_internal failed ssid %s len %u\n",
             ksui_ring_text(ids.front(), ksui_form::short_form), static_cast<unsigned>(ids.size()));
    return {};
  }
  return by_ids(ids, full, mmdb_fetchss_ids);
}

ss_list fetchcvr_ids(std::span<const ksui> ids, bool full) {
  if (debug_on(1)) {
    for (const ksui &id : ids)
      KS_DEBUG(1, "In fetchcvr_id func: fetching the details of save set ID %s\n",
               ksui_ring_text(id, ksui_form::short_form));
  }
  return ids.empty() ? ss_list() : by_ids(ids, full, mmdb_fetchcvr_ids);
}

ss_list fetchss_id(const ksui &ssid, bool full) {
  return first_only(fetchss_ids({&ssid, 1}, full));
}

ss_list fetchss_times(std::string_view client, std::span<const std::int64_t> times, bool full) {
  if (times.empty()) return {};
  mif_t &mif = mif_get();
  if (mif.mif_storage) {
    if (storage_open(mif)) return mif.mif_catalog->times(client, times);
    return {};
  }
  return in_pieces(times, [&](std::span<const std::int64_t> piece) {
    return mif_run<ss_list>([&](mif_t &session) {
      return take_ss_list(session, times_call(*session.mif_clnt, client, piece, full));
    });
  });
}

ss_list ss_by_time_fetch(std::string_view client, std::int64_t savetime, bool full) {
  if (client.empty()) {
    mif_store_error(
        err_create(145084, 13022,
                   "Cannot fetch a save set by savetime '%s': no client host name is specified.",
                   {{MSG_ARG_SAVETIME, std::to_string(savetime)}}));
    return {};
  }
  return first_only(fetchss_times(client, {&savetime, 1}, full));
}

}  // namespace qvr
