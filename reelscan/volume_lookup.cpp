#include "volume_lookup.h"

namespace qvr {

volume_lookup::volume_lookup(bool full) : full_(full) {
  mif_set_cache_limit(MIF_CACHE_NO_LIMIT);
}

volume_lookup::~volume_lookup() {
  mif_set_cache_limit(0);  // below the least: the default
}

const vol_t *volume_lookup::find(const ksui &volid) {
  if (!full_) return cached_vol(volid);
  auto [at, fresh] = fetched_.try_emplace(volid);
  if (fresh) at->second = get_vol_id(volid, true);
  return at->second.empty() ? nullptr : at->second.rows.front();
}

const vol_t *volume_lookup::first() {
  if (!all_asked_) all_ = get_vols_name({}, full_);
  all_asked_ = true;
  return all_.empty() ? nullptr : all_.rows.front();
}

}  // namespace qvr
