#include "ks_list.h"

#include <cerrno>
#include <new>

#include "ks_clock.h"
#include "ks_errors.h"
#include "ks_list_parts.h"

namespace qvr {

namespace {

int failed(int error) {
  return ks_set_error(error, KS_ERROR_ERRNO);
}

std::int64_t expiry_of(std::int64_t ttl) {
  std::int64_t expiry;
  if (ttl == KS_LIST_NEVER || __builtin_add_overflow(ks_clock_now(), ttl, &expiry)) {
    return KS_LIST_NEVER;
  }
  return expiry;
}

bool expired(const ks_entry_t &entry) {
  return entry.expiry != KS_LIST_NEVER && entry.expiry <= ks_clock_now();
}

ks_entry_t *entry_of(const KSList &list, const void *key) {
  if (list.hooks.compare == nullptr) return nullptr;
  for (ks_entry_t *entry = list.head; entry != nullptr; entry = entry->next) {
    if (entry->key != nullptr && list.hooks.compare(entry->key, key) == 0) return entry;
  }
  return nullptr;
}

ks_entry_t *entry_at(const KSList &list, std::uint32_t position) {
  if (position == 0 || position > list.count) return nullptr;
  if (position == list.count) return list.tail;
  ks_entry_t *entry = list.head;
  while (--position > 0) entry = entry->next;
  return entry;
}

void free_value(const KSList &list, void *value) {
  if (list.hooks.value_free != nullptr && value != nullptr) list.hooks.value_free(value);
}

void free_key(const KSList &list, void *key) {
  if (list.hooks.key_free != nullptr && key != nullptr) list.hooks.key_free(key);
}

// Puts a new entry in front of `next`, or at the end for null. The list is locked.
int link_entry(KSList &list, ks_entry_t *next, void *value, void *key, std::int64_t ttl) {
  std::unique_ptr<ks_entry_t> made(new (std::nothrow) ks_entry_t);
  if (made == nullptr) return failed(ENOMEM);
  ks_entry_t *entry = made.release();
  entry->value = value;
  entry->key = key;
  entry->expiry = expiry_of(ttl);
  entry->next = next;
  entry->previous = next != nullptr ? next->previous : list.tail;
  (entry->previous != nullptr ? entry->previous->next : list.head) = entry;
  (next != nullptr ? next->previous : list.tail) = entry;
  list.count++;
  return KS_OK;
}

// Takes an entry out of a locked list and hands its value on.
void unlink_entry(KSList &list, ks_entry_t *entry, void **value) {
  ks_iter_move_away(list, entry);
  (entry->previous != nullptr ? entry->previous->next : list.head) = entry->next;
  (entry->next != nullptr ? entry->next->previous : list.tail) = entry->previous;
  list.count--;
  std::unique_ptr<ks_entry_t> gone(entry);
  free_key(list, gone->key);
  if (value != nullptr && list.option != KS_LIST_OWNS) {
    *value = gone->value;
  } else {
    free_value(list, gone->value);
  }
}

// What stands in the way of a new entry: an entry of the same key is not wanted twice, unless it
// never expires.
int make_way(KSList &list, const void *key, std::int64_t ttl) {
  if (key == nullptr || ttl == KS_LIST_NEVER) return KS_OK;
  ks_entry_t *there = entry_of(list, key);
  if (there == nullptr) return KS_OK;
  if (!expired(*there)) return failed(EEXIST);
  unlink_entry(list, there, nullptr);
  return KS_OK;
}

enum class removal { plain, guarded };

int remove_entry(KSList &list, ks_entry_t *entry, removal form, void **value) {
  if (entry == nullptr) return failed(ENOENT);
  if (form == removal::guarded && (entry->pins != 0 || ks_iter_stands_on(list, entry))) {
    return failed(EBUSY);
  }
  unlink_entry(list, entry, value);
  return KS_OK;
}

int remove_at(KSList *list, std::uint32_t position, removal form, void **value) {
  if (value != nullptr) *value = nullptr;
  if (list == nullptr) return ks_null_argument();
  ks_list_hold hold(*list);
  return remove_entry(*list, entry_at(*list, position), form, value);
}

int remove_key(KSList *list, const void *key, removal form, void **value) {
  if (value != nullptr) *value = nullptr;
  if (list == nullptr || key == nullptr) return ks_null_argument();
  ks_list_hold hold(*list);
  return remove_entry(*list, entry_of(*list, key), form, value);
}

// Finds a live entry and lets `use` take what it wants of it, under the lock.
template <class Use>
int find_entry(KSList *list, const void *key, void **value, Use use) {
  if (value != nullptr) *value = nullptr;
  if (list == nullptr || key == nullptr) return ks_null_argument();
  ks_list_hold hold(*list);
  ks_entry_t *entry = entry_of(*list, key);
  if (entry == nullptr) return failed(ENOENT);
  if (expired(*entry)) {
    unlink_entry(*list, entry, nullptr);
    return failed(ETIME);
  }
  return use(*entry);
}

void put_value(void **value, void *found) {
  if (value != nullptr) *value = found;
}

void end_list(ks_object_t *object) {
  std::unique_ptr<KSList> list(static_cast<KSList *>(object));
  while (list->head != nullptr) unlink_entry(*list, list->head, nullptr);
}

}  // namespace

KSList *ks_list_create(const ks_list_hooks_t &hooks, std::uint32_t option, std::uint32_t flags) {
  std::unique_ptr<KSList> made(new (std::nothrow) KSList);
  if (made == nullptr) {
    failed(ENOMEM);
    return nullptr;
  }
  made->hooks = hooks;
  made->option = option;
  made->flags = KS_LIST_MADE | (flags & KS_LIST_NO_LOCK);
  if ((made->flags & KS_LIST_NO_LOCK) == 0) {
    made->lock.reset(ks_mutex_create());
    if (made->lock == nullptr) return nullptr;
  }
  ks_object_register(made.get(), end_list);
  return made.release();
}

int ks_list_share(KSList *list) {
  return ks_object_hold(list);
}

int ks_list_destroy(KSList *list) {
  if (list == nullptr) return ks_null_argument();
  {
    ks_list_hold hold(*list);
    if (list->iterators != nullptr) return failed(EBUSY);
  }
  return ks_object_drop(list) < 0 ? KS_EINVAL : KS_OK;
}

int ks_list_append(KSList *list, void *value, void *key, std::int64_t ttl) {
  return ks_list_insert(list, UINT32_MAX, value, key, ttl);
}

int ks_list_prepend(KSList *list, void *value, void *key, std::int64_t ttl) {
  return ks_list_insert(list, 1, value, key, ttl);
}

int ks_list_insert(KSList *list, std::uint32_t position, void *value, void *key, std::int64_t ttl) {
  if (list == nullptr || value == nullptr) return ks_null_argument();
  ks_list_hold hold(*list);
  int rc = make_way(*list, key, ttl);
  if (rc != KS_OK) return rc;
  return link_entry(*list, entry_at(*list, position == 0 ? 1 : position), value, key, ttl);
}

int ks_list_replace(KSList *list, void *key, void *value, std::int64_t ttl, void **old_key,
                    void **old_value) {
  if (old_key != nullptr) *old_key = nullptr;
  if (old_value != nullptr) *old_value = nullptr;
  if (list == nullptr || key == nullptr || value == nullptr) return ks_null_argument();
  ks_list_hold hold(*list);
  ks_entry_t *entry = entry_of(*list, key);
  if (entry == nullptr) return link_entry(*list, nullptr, value, key, ttl);
  if (entry->pins != 0) return failed(EBUSY);
  void *was_key = entry->key, *was_value = entry->value;
  entry->key = key;
  entry->value = value;
  entry->expiry = expiry_of(ttl);
  if (old_key != nullptr) {
    *old_key = was_key;
  } else if (was_key != key) {
    free_key(*list, was_key);
  }
  if (old_value != nullptr) {
    *old_value = was_value;
  } else if (was_value != value) {
    free_value(*list, was_value);
  }
  return KS_OK;
}

int ks_list_remove_at(KSList *list, std::uint32_t position, void **value) {
  return remove_at(list, position, removal::plain, value);
}

int ks_list_remove_at_guarded(KSList *list, std::uint32_t position, void **value) {
  return remove_at(list, position, removal::guarded, value);
}

int ks_list_remove(KSList *list, const void *key, void **value) {
  return remove_key(list, key, removal::plain, value);
}

int ks_list_remove_guarded(KSList *list, const void *key, void **value) {
  return remove_key(list, key, removal::guarded, value);
}

int ks_list_find(KSList *list, const void *key, void **value) {
  return find_entry(list, key, value, [&](ks_entry_t &entry) {
    put_value(value, entry.value);
    return KS_OK;
  });
}

int ks_list_find_copy(KSList *list, const void *key, void **value) {
  return find_entry(list, key, value, [&](ks_entry_t &entry) {
    void *copy = list->hooks.value_copy != nullptr ? list->hooks.value_copy(entry.value) : nullptr;
    if (copy == nullptr) return failed(ENOMEM);
    put_value(value, copy);
    return KS_OK;
  });
}

int ks_list_find_pin(KSList *list, const void *key, void **value) {
  return find_entry(list, key, value, [&](ks_entry_t &entry) {
    entry.pins++;
    put_value(value, entry.value);
    return KS_OK;
  });
}

int ks_list_find_unpin(KSList *list, const void *key, void **value) {
  return find_entry(list, key, value, [&](ks_entry_t &entry) {
    if (entry.pins > 0) entry.pins--;
    put_value(value, entry.value);
    return KS_OK;
  });
}

std::uint32_t ks_list_position(KSList *list, const void *key) {
  if (list == nullptr || key == nullptr) {
    ks_null_argument();
    return 0;
  }
  ks_list_hold hold(*list);
  const ks_entry_t *entry = entry_of(*list, key);
  std::uint32_t position = 0;
  for (; entry != nullptr; entry = entry->previous) position++;
  return position;
}

int ks_list_each(KSList *list, void (*function)(void *value, void *argument), void *argument) {
  if (list == nullptr || function == nullptr) return ks_null_argument();
  ks_list_hold hold(*list);
  for (ks_entry_t *entry = list->head; entry != nullptr;) {
    // The function may remove the entry that it is given: the lock is recursive.
    ks_entry_t *next = entry->next;
    function(entry->value, argument);
    entry = next;
  }
  return KS_OK;
}

std::uint32_t ks_list_count(KSList *list) {
  if (list == nullptr) {
    ks_null_argument();
    return 0;
  }
  ks_list_hold hold(*list);
  return list->count;
}

}  // namespace qvr
