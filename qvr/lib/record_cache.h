// The session's caches of records: a chain in which a used record moves one step towards the head
// and the last one makes way, found by hash.
#pragma once

#include <cstdint>
#include <initializer_list>
#include <list>
#include <memory>
#include <unordered_map>

#include "arena.h"
#include "records.h"

namespace qvr {

// What a record is found by. Equal keys may belong to different records; a match decides.
inline std::uint64_t cache_key(const ksui &id) {
  return id.word(1);
}
inline std::uint64_t cache_key(std::int64_t savetime) {
  return static_cast<std::uint64_t>(savetime) ^ 0x9E3779B97F4A7C15;
}

template <class Record>
class record_cache {
 public:
  // The first record of that key that matches, moved one step up; null when there is none.
  template <class Match>
  const Record *find(std::uint64_t key, Match match) {
    auto [at, end] = index_.equal_range(key);
    for (; at != end; ++at) {
      auto entry = at->second;
      if (!match(*entry->record)) continue;
      if (entry != chain_.begin()) chain_.splice(std::prev(entry), chain_, entry);
      return entry->record;
    }
    return nullptr;
  }

  // Puts a record at the head; a chain that had reached `limit` gives up its last. `page` keeps the
  // record's memory; null when the cache's own arena has it.
  const Record *insert(Record *record, std::shared_ptr<arena> page,
                       std::initializer_list<std::uint64_t> keys, std::uint32_t limit) {
    bool full = chain_.size() >= limit;
    chain_.push_front({record, std::move(page), {}});
    for (std::uint64_t key : keys)
      chain_.front().places.push_back(index_.emplace(key, chain_.begin()));
    if (full) drop_last();
    return record;
  }

  // Memory for records that stay until the cache is cleared.
  arena &own_arena() {
    if (own_ == nullptr) own_ = std::make_unique<arena>();
    return *own_;
  }

  void clear() {
    index_.clear();
    chain_.clear();
    own_.reset();
  }
  std::size_t size() const { return chain_.size(); }

 private:
  struct entry_t;
  using index_t = std::unordered_multimap<std::uint64_t, typename std::list<entry_t>::iterator>;
  struct entry_t {
    Record *record;
    std::shared_ptr<arena> page;
    std::vector<typename index_t::iterator> places;
  };

  void drop_last() {
    for (auto place : chain_.back().places) index_.erase(place);
    chain_.pop_back();
  }

  std::list<entry_t> chain_;
  index_t index_;
  std::unique_ptr<arena> own_;
};

using vol_cache = record_cache<vol_t>;
using ss_cache = record_cache<ss_t>;

// A copy of a volume with all that it borrows.
vol_t *vol_copy(const vol_t &vol, arena &page);

}  // namespace qvr
