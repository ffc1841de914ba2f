// Volumes by their several keys, and the caches of records.
#include "debug_words.h"
#include "mmdb_stubs.h"
#include "queries.h"
#include "take_list.h"

namespace qvr {

namespace {

template <class Args>
vol_list ask(std::optional<vol_reply> (*procedure)(CLIENT &, const Args &), const Args &args) {
  return mif_run<vol_list>(
      [&](mif_t &mif) { return take_vol_list(mif, procedure(*mif.mif_clnt, args)); });
}

void default_limit(mif_t &mif) {
  if (mif.mif_cache_limit == 0) mif.mif_cache_limit = MIF_CACHE_DEFAULT;
}

const ss_t *keep_ss(mif_t &mif, ss_list list) {
  if (list.empty()) return nullptr;
  ss_t *ss = list.rows.front();
  // Every page stays: a translated name lies in one of its own.
  auto pages = std::make_shared<std::vector<std::shared_ptr<arena>>>(std::move(list.pages));
  std::shared_ptr<arena> keeper(pages, pages->front().get());
  return mif.mif_ss_cache.insert(
      ss, std::move(keeper), {cache_key(ss->ssid), cache_key(ss->savetime)}, mif.mif_cache_limit);
}

}  // namespace

vol_list get_vol_id_list(const ksui &volid, bool full) {
  return ask<mmdb_vol_id_args>(mmdb_get_vol_id, {volid, full});
}

vol_list get_vol_id(const ksui &volid, bool full) {
  return first_only(get_vol_id_list(volid, full));
}

vol_list get_vols_name(std::string_view name, bool full) {
  return ask<mmdb_vol_text_args>(mmdb_get_vols_name, {name, full});
}

vol_list get_vols_family(std::string_view family, std::string_view type, std::uint32_t mask,
                         std::uint32_t value, bool full) {
  return ask<mmdb_family_args>(mmdb_get_vols_family, {family, type, mask, value, full});
}

vol_list get_vols_pool(std::string_view pool, std::uint32_t mask, std::uint32_t value, bool full) {
  return ask<mmdb_pool_args>(mmdb_get_vols_pool, {pool, mask, value, full});
}

vol_list get_vols_barcode(std::string_view barcode, bool full) {
  return ask<mmdb_vol_text_args>(mmdb_get_vols_barcode, {barcode, full});
}

vol_list get_vols_location(std::string_view location, bool full) {
  return ask<mmdb_location_args>(mmdb_get_vols_location, {location, {}, full});
}

void drop_bad_vols(vol_list &list) {
  std::erase_if(list.rows,
                [](const vol_t *vol) { return vol->volid.is_null() || vol->volid.is_invalid(); });
}

vol_t *vol_copy(const vol_t &vol, arena &page) {
  auto *copy = page.make<vol_t>();
  *copy = vol;
  for (std::string_view *text :
       {&copy->volume, &copy->family, &copy->type, &copy->location, &copy->pool, &copy->barcode})
    *text = page.copy(*text);
  copy->volattrs = packed_attrs(page.copy(vol.volattrs.series()));
  auto ids = page.make_array<ksui>(vol.nssids);
  std::copy_n(vol.ssids, vol.nssids, ids.begin());
  copy->ssids = ids.data();
  return copy;
}

const vol_t *cached_vol(const ksui &volid, bool ask) {
  mif_t &mif = mif_get();
  default_limit(mif);
  auto same = [&](const vol_t &vol) { return ksui_cmp(vol.volid, volid) == 0; };
  if (const vol_t *vol = mif.mif_vol_cache.find(cache_key(volid), same)) return vol;
  if (!ask) return nullptr;
  vol_list list = get_vol_id(volid, false);
  if (list.empty()) {
    // What the callers leave out for lack of a volume is told here alone.
    if (mif.mif_error.code != 0)
      KS_DEBUG(1, "cached_vol: volume '%s' is missing (%d: %s)\n",
               ksui_ring_text(volid, ksui_form::short_form), mif.mif_error.code,
               mif.mif_error.text.c_str());
    return nullptr;
  }
  vol_t *vol = list.rows.front();
  std::shared_ptr<arena> page = list.pages.front();
  if (mif.mif_cache_limit == MIF_CACHE_NO_LIMIT) {
    // Nothing is evicted one by one: all share an arena instead of a page each.
    vol = vol_copy(*vol, mif.mif_vol_cache.own_arena());
    page = nullptr;
  }
  return mif.mif_vol_cache.insert(vol, std::move(page), {cache_key(vol->volid)},
                                  mif.mif_cache_limit);
}

const ss_t *cached_ss(const ksui &ssid) {
  mif_t &mif = mif_get();
  default_limit(mif);
  auto same = [&](const ss_t &ss) { return ksui_cmp(ss.ssid, ssid) == 0; };
  if (const ss_t *ss = mif.mif_ss_cache.find(cache_key(ssid), same)) return ss;
  return keep_ss(mif, first_only(fetchcvr_ids({&ssid, 1}, true)));
}

const ss_t *cached_ss(std::string_view client, std::int64_t savetime) {
  mif_t &mif = mif_get();
  default_limit(mif);
  auto same = [&](const ss_t &ss) { return ss.savetime == savetime && ss.client == client; };
  if (const ss_t *ss = mif.mif_ss_cache.find(cache_key(savetime), same)) return ss;
  return keep_ss(mif, ss_by_time_fetch(client, savetime, true));
}

void mif_set_cache_limit(std::uint32_t limit) {
  mif_t &mif = mif_get();
  mif.mif_vol_cache.clear();
  mif.mif_ss_cache.clear();
  mif.mif_cache_limit = std::max(limit, MIF_CACHE_DEFAULT);
}

}  // namespace qvr
