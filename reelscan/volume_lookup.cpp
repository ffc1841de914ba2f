#include "volume_lookup.h"

#include "debug_words.h"
#include "session.h"

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
  if (fresh) {
    at->second = get_vol_id(volid, true);
    const errobj_t *error = at->second.empty() && debug_on(1) ? mif_last_error() : nullptr;
    if (error != nullptr)
      KS_DEBUG(1, "volume '%s' of a fragment is missing (%d: %s)\n",
               ksui_ring_text(volid, ksui_form::short_form), error->code, error->text.c_str());
  }
  return at->second.empty() ? nullptr : at->second.rows.front();
}

const vol_t *volume_lookup::first() {
  if (!all_asked_) all_ = get_vols_name({}, full_);
  all_asked_ = true;
  return all_.empty() ? nullptr : all_.rows.front();
}

}  // namespace qvr
