#include "lab_state.h"
#include "mmdb_calls.h"

namespace qvr {

namespace {

// A list of the volumes that fit.
template <class Fits>
bool answer_volumes(lab_exchange &call, bool full, Fits fits) {
  if (call.telling) call.args.add("full", full);
  if (!begin_list(call)) return true;
  for (const vol_row &row : call.lab.catalogue.volumes()) {
    if (fits(row.record)) put_record(call, row.encoded, full);
  }
  end_list(call);
  return true;
}

bool fits(std::string_view wanted, std::string_view text) {
  return wanted.empty() || wanted == text;
}

struct flag_request {
  std::uint32_t mask = 0, value = 0;
  bool fits(std::uint32_t flags) const { return (flags & mask) == value; }
};

bool get_flags(lab_exchange &call, flag_request &flags) {
  if (!call.in.get_u32(flags.mask) || !call.in.get_u32(flags.value)) return false;
  if (call.telling) call.args.add("flagmask", flags.mask).add("flags", flags.value);
  return true;
}

bool get_told_text(lab_exchange &call, std::string_view name, std::string &text) {
  if (!get_text(call.in, text)) return false;
  if (call.telling) call.args.add(name, text);
  return true;
}

}  // namespace

bool mmdb_get_vols_family(lab_exchange &call) {
  std::string family, type;
  flag_request flags;
  bool full = false;
  if (!get_told_text(call, "family", family) || !get_told_text(call, "type", type) ||
      !get_flags(call, flags) || !call.in.get_bool(full))
    return false;
  return answer_volumes(call, full, [&](const vol_t &vol) {
    return fits(family, vol.family) && fits(type, vol.type) && flags.fits(vol.volflags);
  });
}

bool mmdb_get_vol_id(lab_exchange &call) {
  ksui id;
  bool full = false;
  if (!get_optional_id(call.in, id) || !call.in.get_bool(full)) return false;
  if (call.telling) call.args.add_raw("volid", tell_id(id));
  return answer_volumes(
      call, full, [&](const vol_t &vol) { return !id.is_null() && ksui_cmp(vol.volid, id) == 0; });
}

bool mmdb_get_vols_name(lab_exchange &call) {
  std::string volume;
  bool full = false;
  if (!get_told_text(call, "volume", volume) || !call.in.get_bool(full)) return false;
  return answer_volumes(call, full, [&](const vol_t &vol) { return fits(volume, vol.volume); });
}

bool mmdb_get_vols_pool(lab_exchange &call) {
  std::string pool;
  flag_request flags;
  bool full = false;
  if (!get_told_text(call, "pool", pool) || !get_flags(call, flags) || !call.in.get_bool(full))
    return false;
  return answer_volumes(call, full, [&](const vol_t &vol) {
    return fits(pool, vol.pool) && flags.fits(vol.volflags);
  });
}

bool mmdb_get_vols_barcode(lab_exchange &call) {
  std::string barcode;
  bool full = false;
  if (!get_told_text(call, "barcode", barcode) || !call.in.get_bool(full)) return false;
  return answer_volumes(call, full, [&](const vol_t &vol) { return vol.barcode == barcode; });
}

bool mmdb_get_vols_location(lab_exchange &call) {
  std::string location;
  time_bounds range;
  bool full = false;
  if (!get_told_text(call, "location", location) || !get_range(call.in, range) ||
      !call.in.get_bool(full))
    return false;
  if (call.telling) call.args.add_raw("range", tell_range(range));
  std::int64_t left = range.count == 0 ? INT64_MAX : range.count;
  return answer_volumes(call, full, [&](const vol_t &vol) {
    return fits(location, vol.location) && vol.volaccess >= range.from &&
           vol.volaccess <= range.to && left-- > 0;
  });
}

}  // namespace qvr
