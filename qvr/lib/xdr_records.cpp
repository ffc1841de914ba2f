#include "xdr_records.h"

#include "wire_words.h"
#include "xdr_arrays.h"

namespace qvr {

namespace {

// Bytes of the fixed parts, in the order in which they stand in the records.
constexpr std::size_t FRAG_BYTES = 8 + 20 + 4 * 3 + 8;
constexpr std::size_t CLONE_BYTES = 8 + 4 + 4;
constexpr std::size_t SS_HEAD_BYTES = 4 + 20 + 20 + 4 + 8 * 4 + 20 + 4;
constexpr std::size_t SS_TAIL_BYTES = 8 + 8 + 4 + 4;
constexpr std::size_t VOL_HEAD_BYTES = 4 + 20;
constexpr std::size_t VOL_TAIL_BYTES = 8 * 3 + 4 * 2 + 8 * 5 + 4 * 5;
constexpr std::size_t HIST_HEAD_BYTES = 20 + 8 + 4 + 8;
constexpr std::size_t HIST_TAIL_BYTES = 8 + 8;
constexpr std::size_t MR_BYTES = 8 * 3;

template <std::size_t Size>
using room = std::array<std::uint8_t, Size>;

}  // namespace

bool xdr_put_frag(XDR &xdr, const frag_t &frag) {
  return word_writer<FRAG_BYTES>()
      .i64(frag.fragoffset)
      .id(frag.volid)
      .u32(frag.mediafile)
      .u32(frag.mediarec)
      .u32(frag.mediamark)
      .i64(frag.ssaccess)
      .put(xdr);
}

bool xdr_get_frag(XDR &xdr, frag_t &frag) {
  room<FRAG_BYTES> bytes;
  const std::uint8_t *at = take_fixed(xdr, bytes);
  if (at == nullptr) return false;
  word_reader in(at);
  frag.fragoffset = in.i64();
  in.id(frag.volid);
  frag.mediafile = in.u32();
  frag.mediarec = in.u32();
  frag.mediamark = in.u32();
  frag.ssaccess = in.i64();
  return true;
}

bool xdr_put_clone(XDR &xdr, const clone_t &clone) {
  if (!word_writer<CLONE_BYTES>().i64(clone.cloneid).u32(clone.clflags).u32(clone.nfrags).put(xdr))
    return false;
  for (const frag_t &frag : clone.fragments()) {
    if (!xdr_put_frag(xdr, frag)) return false;
  }
  return true;
}

bool xdr_get_clone(XDR &xdr, arena &page, clone_t &clone) {
  room<CLONE_BYTES> bytes;
  const std::uint8_t *at = take_fixed(xdr, bytes);
  if (at == nullptr) return false;
  word_reader in(at);
  clone.cloneid = in.i64();
  clone.clflags = in.u32();
  std::uint32_t count = in.u32();
  std::span<frag_t> frags;
  if (!xdr_get_items(xdr, page, count, FRAG_BYTES, frags,
                     [&](frag_t &frag) { return xdr_get_frag(xdr, frag); }))
    return false;
  clone.nfrags = count;
  clone.frags = frags.data();
  return true;
}

bool xdr_put_ss(XDR &xdr, const ss_t &ss) {
  bool head = word_writer<SS_HEAD_BYTES>()
                  .u32(ss.ss_head)
                  .id(ss.ssid)
                  .id(ss.pssid)
                  .i32(ss.level)
                  .i64(ss.savetime)
                  .i64(ss.sscreate)
                  .i64(ss.ssinsert)
                  .i64(ss.sscomp)
                  .id(ss.clientid)
                  .u32(ss.ssflags)
                  .put(xdr);
  if (!head || !xdr_put_text(xdr, ss.client) || !xdr_put_text(xdr, ss.name)) return false;
  bool tail = word_writer<SS_TAIL_BYTES>()
                  .u64(ss.totalsize)
                  .u64(ss.nfiles)
                  .u32(ss.ssbrowse)
                  .u32(ss.ssretent)
                  .put(xdr);
  if (!tail || !xdr_put_packed(xdr, ss.attrs) || !xdr.put_u32(ss.ncopies)) return false;
  for (const clone_t &clone : ss.copies()) {
    if (!xdr_put_clone(xdr, clone)) return false;
  }
  return true;
}

bool xdr_get_ss(XDR &xdr, arena &page, ss_t &ss) {
  room<SS_HEAD_BYTES> bytes;
  const std::uint8_t *at = take_fixed(xdr, bytes);
  if (at == nullptr) return false;
  word_reader head(at);
  ss.ss_head = head.u32();
  head.id(ss.ssid);
  head.id(ss.pssid);
  ss.level = head.i32();
  ss.savetime = head.i64();
  ss.sscreate = head.i64();
  ss.ssinsert = head.i64();
  ss.sscomp = head.i64();
  head.id(ss.clientid);
  ss.ssflags = head.u32();
  if (!xdr_get_text(xdr, page, ss.client) || !xdr_get_text(xdr, page, ss.name)) return false;

  room<SS_TAIL_BYTES> more;
  at = take_fixed(xdr, more);
  if (at == nullptr) return false;
  word_reader tail(at);
  ss.totalsize = tail.u64();
  ss.nfiles = tail.u64();
  ss.ssbrowse = tail.u32();
  ss.ssretent = tail.u32();

  std::uint32_t count = 0;
  std::span<clone_t> clones;
  if (!xdr_get_packed(xdr, page, ss.attrs) || !xdr.get_u32(count) ||
      !xdr_get_items(xdr, page, count, CLONE_BYTES, clones,
                     [&](clone_t &clone) { return xdr_get_clone(xdr, page, clone); }))
    return false;
  ss.ncopies = count;
  ss.clones = clones.data();
  return true;
}

bool xdr_put_vol(XDR &xdr, const vol_t &vol) {
  if (!word_writer<VOL_HEAD_BYTES>().u32(vol.vol_head).id(vol.volid).put(xdr)) return false;
  for (std::string_view text :
       {vol.volume, vol.family, vol.type, vol.location, vol.pool, vol.barcode}) {
    if (!xdr_put_text(xdr, text)) return false;
  }
  return word_writer<VOL_TAIL_BYTES>()
             .u64(vol.capacity)
             .u64(vol.written)
             .u64(vol.read)
             .u32(vol.next)
             .u32(vol.nrec)
             .i64(vol.volaccess)
             .i64(vol.volhold)
             .i64(vol.olabel)
             .i64(vol.labeled)
             .i64(vol.volretent)
             .u32(vol.volflags)
             .u32(vol.mounts)
             .u32(vol.recycled)
             .u32(vol.avail)
             .u32(vol.metric)
             .put(xdr) &&
         xdr_put_packed(xdr, vol.volattrs) && xdr_put_ids(xdr, vol.savesets());
}

bool xdr_get_vol(XDR &xdr, arena &page, vol_t &vol) {
  room<VOL_HEAD_BYTES> bytes;
  const std::uint8_t *at = take_fixed(xdr, bytes);
  if (at == nullptr) return false;
  word_reader head(at);
  vol.vol_head = head.u32();
  head.id(vol.volid);
  for (std::string_view *text :
       {&vol.volume, &vol.family, &vol.type, &vol.location, &vol.pool, &vol.barcode}) {
    if (!xdr_get_text(xdr, page, *text)) return false;
  }

  room<VOL_TAIL_BYTES> more;
  at = take_fixed(xdr, more);
  if (at == nullptr) return false;
  word_reader tail(at);
  vol.capacity = tail.u64();
  vol.written = tail.u64();
  vol.read = tail.u64();
  vol.next = tail.u32();
  vol.nrec = tail.u32();
  vol.volaccess = tail.i64();
  vol.volhold = tail.i64();
  vol.olabel = tail.i64();
  vol.labeled = tail.i64();
  vol.volretent = tail.i64();
  vol.volflags = tail.u32();
  vol.mounts = tail.u32();
  vol.recycled = tail.u32();
  vol.avail = tail.u32();
  vol.metric = tail.u32();

  std::span<ksui> ids;
  if (!xdr_get_packed(xdr, page, vol.volattrs) || !xdr_get_ids(xdr, page, ids)) return false;
  vol.nssids = static_cast<std::uint32_t>(ids.size());
  vol.ssids = ids.data();
  return true;
}

bool xdr_put_hist(XDR &xdr, const hist &change) {
  bool head = word_writer<HIST_HEAD_BYTES>()
                  .id(change.hist_id)
                  .i64(change.hist_clone)
                  .i32(change.operation)
                  .i64(change.timestamp)
                  .put(xdr);
  return head && xdr_put_text(xdr, change.user) && xdr_put_text(xdr, change.property) &&
         xdr_put_text(xdr, change.oldvalue) && xdr_put_text(xdr, change.newvalue) &&
         word_writer<HIST_TAIL_BYTES>().i64(change.validity).u64(change.changes).put(xdr);
}

bool xdr_get_hist(XDR &xdr, arena &page, hist &change) {
  room<HIST_HEAD_BYTES> bytes;
  const std::uint8_t *at = take_fixed(xdr, bytes);
  if (at == nullptr) return false;
  word_reader head(at);
  head.id(change.hist_id);
  change.hist_clone = head.i64();
  change.operation = head.i32();
  change.timestamp = head.i64();
  return xdr_get_text(xdr, page, change.user) && xdr_get_text(xdr, page, change.property) &&
         xdr_get_text(xdr, page, change.oldvalue) && xdr_get_text(xdr, page, change.newvalue) &&
         xdr.get_i64(change.validity) && xdr.get_u64(change.changes);
}

bool xdr_put_clidmap(XDR &xdr, const clidmap &entry) {
  return xdr_put_ksui(xdr, entry.clientid) && xdr_put_text(xdr, entry.clientname);
}

bool xdr_get_clidmap(XDR &xdr, clidmap &entry) {
  return xdr_get_ksui(xdr, entry.clientid) && xdr.get_counted(entry.clientname);
}

bool xdr_put_mr(XDR &xdr, const mr_range &range) {
  return word_writer<MR_BYTES>()
      .u64(range.mr_start_time)
      .u64(range.mr_end_time)
      .i64(range.mr_count)
      .put(xdr);
}

bool xdr_get_mr(XDR &xdr, mr_range &range) {
  return xdr.get_u64(range.mr_start_time) && xdr.get_u64(range.mr_end_time) &&
         xdr.get_i64(range.mr_count);
}

}  // namespace qvr
