// What a port mapper answers: the list of its entries.
#include "fuzz.h"
#include "pmap_protocol.h"
#include "short_writer.h"

using namespace qvr;

void fuzz(std::string_view bytes) {
  xdr_memory_reader in(bytes);
  std::vector<pmap_entry_t> entries;
  bool good = xdr_get_pmap_list(in, [&](const pmap_entry_t &entry) { entries.push_back(entry); });
  if (entries.size() > bytes.size() / 20) std::abort();
  if (!good) return;
  // What was read goes out and comes back as it was.
  xdr_memory_writer out;
  for (const pmap_entry_t &entry : entries) {
    if (!out.put_bool(true) || !xdr_put_pmap(out, entry)) std::abort();
    if (!tells_short_streams(16, [&](XDR &full) { return xdr_put_pmap(full, entry); }))
      std::abort();
  }
  out.put_bool(false);
  xdr_memory_reader again(out.bytes());
  std::size_t at = 0;
  bool same = xdr_get_pmap_list(again, [&](const pmap_entry_t &entry) {
    if (at >= entries.size() || !(entry == entries[at++])) std::abort();
  });
  if (!same || at != entries.size()) std::abort();
}
