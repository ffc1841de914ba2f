// An ordered list with optional keys, an expiry for each entry, pins, and iterators that stay valid
// while others change the list.
#pragma once

#include <cstdint>
#include <limits>
#include <memory>

#include "ks_mutex.h"
#include "ks_object.h"

namespace qvr {

struct ks_entry_t;
struct KSIterator;
struct KSList;

inline constexpr std::int64_t KS_LIST_NEVER = std::numeric_limits<std::int64_t>::max();

// The list owns its values: a removal hands the value to value_free and gives the caller null.
// Without it the value goes to the caller.
inline constexpr std::uint32_t KS_LIST_OWNS = 1;

inline constexpr std::uint32_t KS_LIST_MADE = 2;     // a flag of the object: set at creation
inline constexpr std::uint32_t KS_LIST_NO_LOCK = 4;  // and: the list takes no lock

// What a list does with its values and keys. Any may be null; without `compare` there are no keyed
// operations.
struct ks_list_hooks_t {
  void (*value_free)(void *value) = nullptr;
  void *(*value_copy)(const void *value) = nullptr;
  int (*compare)(const void *a, const void *b) = nullptr;  // 0: the keys are equal
  void (*key_free)(void *key) = nullptr;
};

// Every operation answers 0 or a portable number: 2 a null argument, 12 busy, 22 a live entry has
// the key, 49 not found, 53 no memory, 80 expired. Operations may be called by any thread, unless
// the list was made to take no lock. `option` is 0 or KS_LIST_OWNS; `flags` 0 or KS_LIST_NO_LOCK.

// Null with errno set on failure.
KSList *ks_list_create(const ks_list_hooks_t &hooks, std::uint32_t option, std::uint32_t flags = 0);
// One more owner: the list then takes one more destroy to go. The owners, or -1.
int ks_list_share(KSList *list);
// 12, and nothing changes, while an iterator is alive. Otherwise ends one ownership, and with the
// last each value goes to value_free and each key to key_free.
int ks_list_destroy(KSList *list);

// `ttl` in seconds from now. On a keyed list, with a key and a `ttl` other than KS_LIST_NEVER, a
// live entry of that key gives 22; an expired one makes way.
int ks_list_append(KSList *list, void *value, void *key = nullptr,
                   std::int64_t ttl = KS_LIST_NEVER);
int ks_list_prepend(KSList *list, void *value, void *key = nullptr,
                    std::int64_t ttl = KS_LIST_NEVER);
// Positions count from 1; 0 means 1, and one beyond the count the end.
int ks_list_insert(KSList *list, std::uint32_t position, void *value, void *key = nullptr,
                   std::int64_t ttl = KS_LIST_NEVER);

// Puts `key` and `value` in the place of the entry of that key, or appends them. The old ones go to
// `old_key` and `old_value`, or to the free hooks where these are null. A pinned entry gives 12.
int ks_list_replace(KSList *list, void *key, void *value, std::int64_t ttl, void **old_key,
                    void **old_value);

// Removal at a position, or of a key. The guarded forms give 12 when an iterator stands on the
// entry or it is pinned; the plain ones move the iterators away first. Null `value`: the value goes
// to value_free.
int ks_list_remove_at(KSList *list, std::uint32_t position, void **value);
int ks_list_remove_at_guarded(KSList *list, std::uint32_t position, void **value);
int ks_list_remove(KSList *list, const void *key, void **value);
int ks_list_remove_guarded(KSList *list, const void *key, void **value);

// Finding an expired entry removes it, pinned or not, and gives 80. The value is borrowed; that of
// ks_list_find_copy is value_copy's and the caller's.
int ks_list_find(KSList *list, const void *key, void **value);
int ks_list_find_copy(KSList *list, const void *key, void **value);
// The pin count never goes below 0.
int ks_list_find_pin(KSList *list, const void *key, void **value);
int ks_list_find_unpin(KSList *list, const void *key, void **value);
// From 1; 0 when absent.
std::uint32_t ks_list_position(KSList *list, const void *key);

// Calls `function` on each value in turn, under the list's lock.
int ks_list_each(KSList *list, void (*function)(void *value, void *argument), void *argument);
std::uint32_t ks_list_count(KSList *list);

struct ks_list_closer {
  void operator()(KSList *list) const { ks_list_destroy(list); }
};
using ks_list_ptr = std::unique_ptr<KSList, ks_list_closer>;

// Iterators. One thread at a time uses an iterator; each step takes the list's lock only for that
// step. Null with errno set on failure.
KSIterator *ks_iter_create(KSList *list);
int ks_iter_destroy(KSIterator *iterator);

// The steps. Past either end the value is null and the result 49. An iterator whose entry was
// removed stands on a neighbour, and its next step reads the entry where it stands. A new iterator
// stands before the first entry for a step forward, behind the last for a step backward.
int ks_iter_first(KSIterator *iterator, void **value, void **key = nullptr);
int ks_iter_next(KSIterator *iterator, void **value, void **key = nullptr);
int ks_iter_previous(KSIterator *iterator, void **value, void **key = nullptr);
int ks_iter_last(KSIterator *iterator, void **value, void **key = nullptr);
int ks_iter_current(KSIterator *iterator, void **value, void **key = nullptr);

struct ks_iter_closer {
  void operator()(KSIterator *iterator) const { ks_iter_destroy(iterator); }
};
using ks_iter_ptr = std::unique_ptr<KSIterator, ks_iter_closer>;

}  // namespace qvr
