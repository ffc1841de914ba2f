// The columns of the bootstrap report, which shows what its rows have to show.

#include <algorithm>

#include "rows.h"

namespace qvr {

namespace {

constexpr std::string_view ATTR_DEVICE = "device";
constexpr std::string_view ATTR_ACCESS = "device access information";

constexpr std::size_t WIDEST = 255;  // of a column

struct facts_t {
  bool media_position = false, barcode = false, location = false, device = false, access = false;
  std::size_t longest_volume = 0, longest_barcode = 0, longest_location = 0, longest_device = 0;
};

bool has_position(const clone_t &clone, const ksui &volid) {
  std::span<const frag_t> frags = clone.fragments();
  return std::any_of(frags.begin(), frags.end(), [&](const frag_t &frag) {
    return (frag.mediafile != 0 || frag.mediarec != 0) && ksui_cmp(frag.volid, volid) == 0;
  });
}

bool row_has_position(const row_t &row) {
  if (row.row_clone != nullptr) return has_position(*row.row_clone, row.row_vol->volid);
  std::span<const clone_t> clones = row.row_ss->copies();
  return std::any_of(clones.begin(), clones.end(),
                     [&](const clone_t &clone) { return has_position(clone, row.row_vol->volid); });
}

void longest(std::string_view text, std::size_t &size) {
  size = std::max(size, text.size());
}

void learn_volume(const vol_t &vol, facts_t &facts) {
  longest(vol.volume, facts.longest_volume);
  if (!vol.barcode.empty() && vol.barcode != vol.volume) {
    facts.barcode = true;
    longest(vol.barcode, facts.longest_barcode);
  }
  std::string_view device = vol.volattrs.first(ATTR_DEVICE);
  std::string_view access = vol.volattrs.first(ATTR_ACCESS);
  if (!device.empty()) {
    facts.device = true;
    longest(device, facts.longest_device);
  }
  facts.access |= !access.empty();
  std::string_view host = access.substr(0, access.find(':'));
  if (!vol.location.empty() && vol.location != device && vol.location != host) {
    facts.location = true;
    longest(vol.location, facts.longest_location);
  }
}

void add_column(std::string_view word, std::size_t longest_text, std::string &spec) {
  spec.append(", ").append(word);
  std::size_t width = std::min(longest_text + 1, WIDEST);
  if (longest_text > 0) spec.append("(").append(std::to_string(width)).append(")");
}

}  // namespace

std::string bootstrap_spec(const rows_t &rows, bool all) {
  facts_t facts;
  facts.media_position = facts.barcode = facts.location = facts.device = facts.access = all;
  const vol_t *last = nullptr;
  for (const row_t &row : rows) {
    if (row.row_vol == nullptr || row.row_ss == nullptr) continue;
    if (row.row_vol != last) learn_volume(*row.row_vol, facts);
    last = row.row_vol;
    if (!facts.media_position) facts.media_position = row_has_position(row);
  }
  std::string spec = "savetime(24), space(2), ssid";
  if (facts.media_position) spec += ", mediafile(6), mediarec(6), space";
  spec += ", space";
  add_column("volume", facts.longest_volume, spec);
  if (facts.barcode) add_column("barcode", facts.longest_barcode, spec);
  if (facts.location) add_column("location", facts.longest_location, spec);
  if (facts.device) add_column("device", facts.longest_device, spec);
  if (facts.access) spec += ", access_info";
  return spec;
}

}  // namespace qvr
