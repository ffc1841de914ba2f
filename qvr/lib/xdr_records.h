// XDR (RFC 4506) of the media database's records.
//
// Decoders put texts, attributes and arrays into the arena that the caller gives; the record
// borrows them. No decoder recurses, and none takes memory for a count or a length that the bytes
// which have arrived do not bear out. False fails the whole message; the output is then
// unspecified.
#pragma once

#include "arena.h"
#include "records.h"
#include "xdr.h"

namespace qvr {

// 20 raw bytes.
inline bool xdr_put_ksui(XDR &xdr, const ksui &id) {
  return xdr.put_bytes(id.bytes.data(), id.bytes.size());
}
inline bool xdr_get_ksui(XDR &xdr, ksui &id) {
  return xdr.get_bytes(id.bytes.data(), id.bytes.size());
}
// A count, then so many identifiers. The decoder's array lies in the arena.
bool xdr_put_ids(XDR &xdr, std::span<const ksui> ids);
bool xdr_get_ids(XDR &xdr, arena &page, std::span<ksui> &ids);
// The same of 64-bit times.
bool xdr_put_times(XDR &xdr, std::span<const std::int64_t> times);
bool xdr_get_times(XDR &xdr, arena &page, std::span<std::int64_t> &times);

// A counted text; a NUL follows it in the arena. A null view goes out as the empty text.
inline bool xdr_put_text(XDR &xdr, std::string_view text) {
  return xdr.put_counted(text);
}
bool xdr_get_text(XDR &xdr, arena &page, std::string_view &text, std::uint32_t limit = XDR_MAX);

// A presence word, then the series of attributes in the form in which it is kept.
bool xdr_put_packed(XDR &xdr, const packed_attrs &attrs);
bool xdr_get_packed(XDR &xdr, arena &page, packed_attrs &attrs);

bool xdr_put_frag(XDR &xdr, const frag_t &frag);
bool xdr_get_frag(XDR &xdr, frag_t &frag);
bool xdr_put_clone(XDR &xdr, const clone_t &clone);
bool xdr_get_clone(XDR &xdr, arena &page, clone_t &clone);
bool xdr_put_ss(XDR &xdr, const ss_t &ss);
bool xdr_get_ss(XDR &xdr, arena &page, ss_t &ss);
bool xdr_put_vol(XDR &xdr, const vol_t &vol);
bool xdr_get_vol(XDR &xdr, arena &page, vol_t &vol);
bool xdr_put_hist(XDR &xdr, const hist &change);
bool xdr_get_hist(XDR &xdr, arena &page, hist &change);
bool xdr_put_clidmap(XDR &xdr, const clidmap &entry);
bool xdr_get_clidmap(XDR &xdr, clidmap &entry);
bool xdr_put_mr(XDR &xdr, const mr_range &range);
bool xdr_get_mr(XDR &xdr, mr_range &range);

}  // namespace qvr
