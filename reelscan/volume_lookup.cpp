#include "volume_lookup.h"

#include "debug_words.h"
#include "err_class.h"
#include "session.h"

namespace qvr {

void session_volumes::note_failure() {
  constexpr int no_such_volume = 5;
  const errobj_t *error = failure_ ? nullptr : mif_last_error();
  if (error != nullptr && !err_is(error->code, ERR_MDB, no_such_volume)) failure_ = *error;
}

volume_lookup::volume_lookup(bool full) : full_(full) {
  mif_set_cache_limit(MIF_CACHE_NO_LIMIT);
}

volume_lookup::~volume_lookup() {
  mif_set_cache_limit(0);  // below the least: the default
}

const vol_t *volume_lookup::find(const ksui &volid) {
  if (!full_) return session_(volid);
  auto [at, fresh] = fetched_.try_emplace(volid);
  if (fresh && failure() == nullptr) {
    at->second = get_vol_id(volid, true);
    if (at->second.empty()) session_.note_failure();
    const errobj_t *error = at->second.empty() && debug_on(1) ? mif_last_error() : nullptr;
    if (error != nullptr)
      KS_DEBUG(1, "volume '%s' of a fragment is missing (%d: %s)\n",
               ksui_ring_text(volid, ksui_form::short_form), error->code, error->text.c_str());
  }
  return at->second.empty() ? nullptr : at->second.rows.front();
}

const vol_t *volume_lookup::first() {
  if (!all_asked_) {
    all_ = get_vols_name({}, full_);
    if (all_.empty()) session_.note_failure();
  }
  all_asked_ = true;
  return all_.empty() ? nullptr : all_.rows.front();
}

}  // namespace qvr
