// Reading arrays whose count a peer claims.
#pragma once

#include <span>
#include <vector>

#include "arena.h"
#include "xdr.h"

namespace qvr {

// Memory that is taken for a count before its bytes have been seen.
inline constexpr std::size_t XDR_TRUSTED_BYTES = 64 * 1024;

// Reads `count` items of at least `item_wire` bytes each into the arena; `get` reads one. A large
// array is gathered as it arrives and moves to the arena when it is whole.
template <class Item, class Get>
bool xdr_get_items(XDR &xdr, arena &page, std::size_t count, std::size_t item_wire,
                   std::span<Item> &items, Get get) {
  items = {};
  if (count == 0) return true;
  if (count > xdr.remaining() / item_wire) return false;
  if (count <= XDR_TRUSTED_BYTES / sizeof(Item)) {
    items = page.make_array<Item>(count);
    for (Item &item : items) {
      if (!get(item)) return false;
    }
    return true;
  }
  std::vector<Item> gathered(XDR_TRUSTED_BYTES / sizeof(Item));
  std::size_t have = 0;
  while (have < count) {
    if (have == gathered.size()) gathered.resize(std::min(count, have + have / 2));
    if (!get(gathered[have])) return false;
    have++;
  }
  items = page.make_array<Item>(count);
  std::copy_n(gathered.begin(), count, items.begin());
  return true;
}

}  // namespace qvr
