#include "cell_sizes.h"

#include "ss_flags.h"

namespace qvr {

void rsc_size_kb_text(std::uint64_t kilobytes, cell_text &out) {
  static constexpr char units[] = "KMGTPE";
  char digits[24];
  auto count = static_cast<std::size_t>(
      std::to_chars(digits, digits + sizeof digits, kilobytes).ptr - digits);
  std::size_t unit = count <= 4 ? 0 : (count - 2) / 3;
  if (unit > 5) unit = 5;
  out.add(std::string_view(digits, count - 3 * unit));
  out.add(' ');
  out.add(units[unit]);
  out.add('B');
}

void rsc_size_text(std::uint64_t bytes, cell_text &out) {
  if (bytes > 0 && bytes < 1000) {
    out.add_u64(bytes);
    out.add("  B");
    return;
  }
  // (bytes + 1023) / 1024 without leaving 64 bits.
  rsc_size_kb_text(bytes / 1024 + (bytes % 1024 != 0 ? 1 : 0), out);
}

void rsc_percent_used(const vol_t &vol, cell_text &out) {
  if ((vol.volflags & VOL_FULL) != 0) return out.add("full");
  if (vol.written == 0) return out.add("0%");
  std::uint64_t tenths = 1000;
  if (vol.capacity > 99999)
    tenths = vol.written / (vol.capacity / 1000);
  else if (vol.written < vol.capacity)
    tenths = vol.written * 1000 / vol.capacity;
  if (tenths > 1000) tenths = 1000;
  if (tenths <= 9) {
    out.add("0.");
    out.add_u64(tenths == 0 ? 1 : tenths);
  } else {
    out.add_u64((tenths + 5) / 10);
  }
  out.add('%');
}

namespace {

// Where the fragment ends: the save set's size behind the last one, else where the next begins.
std::uint64_t frag_end(const ss_t &ss, const clone_t &clone, const frag_t &frag) {
  const frag_t *next = &frag + 1;
  if (clone.nfrags == 0 || next >= clone.frags + clone.nfrags) return ss.totalsize;
  return static_cast<std::uint64_t>(next->fragoffset);
}

}  // namespace

std::uint64_t frag_size(const ss_t &ss, const clone_t &clone, const frag_t &frag) {
  std::uint64_t end = frag_end(ss, clone, frag);
  auto start = static_cast<std::uint64_t>(frag.fragoffset);
  if (frag.fragoffset >= 0 && start > end) return end;
  return end - start;
}

std::uint64_t frag_last_byte(const ss_t &ss, const clone_t &clone, const frag_t &frag) {
  std::uint64_t end = frag_end(ss, clone, frag);
  bool last = &frag + 1 >= clone.frags + clone.nfrags;
  return last && end == 0 ? 0 : end - 1;
}

std::uint64_t size_on_volume(const ss_t &ss, const clone_t &clone, const frag_t &frag) {
  std::span<const frag_t> frags = clone.fragments();
  if (frags.empty()) return 0;
  if (ksui_cmp(frags.front().volid, frags.back().volid) == 0 && ss.totalsize != 0)
    return ss.totalsize;
  std::size_t first = 0;
  while (first < frags.size() && ksui_cmp(frags[first].volid, frag.volid) != 0) first++;
  if (first == frags.size()) return 0;
  auto offset = static_cast<std::uint64_t>(frags[first].fragoffset);
  for (std::size_t i = first + 1; i < frags.size(); i++) {
    if (ksui_cmp(frags[i].volid, frag.volid) != 0) {
      return static_cast<std::uint64_t>(frags[i].fragoffset) - offset;
    }
  }
  if (ss.totalsize != 0 && !(frags[first].fragoffset > 0 && ss.totalsize < offset)) {
    return ss.totalsize - offset;
  }
  return static_cast<std::uint64_t>(frags.back().fragoffset) - offset;
}

}  // namespace qvr
