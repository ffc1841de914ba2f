// The insides of a list, shared by its own files.
#pragma once

#include <mutex>

#include "ks_list.h"

namespace qvr {

struct ks_entry_t {
  void *value = nullptr;
  void *key = nullptr;
  std::int64_t expiry = KS_LIST_NEVER;  // seconds since 1970
  std::uint32_t pins = 0;
  ks_entry_t *next = nullptr;
  ks_entry_t *previous = nullptr;
};

// The four steps: each answers the entry to stand on, or null past the end.
struct ks_iter_steps_t {
  ks_entry_t *(*first)(KSList &list, KSIterator &iterator);
  ks_entry_t *(*next)(KSList &list, KSIterator &iterator);
  ks_entry_t *(*previous)(KSList &list, KSIterator &iterator);
  ks_entry_t *(*last)(KSList &list, KSIterator &iterator);
};
extern const ks_iter_steps_t ks_list_steps;

struct KSList : ks_object_t {
  std::uint32_t option = 0;
  std::uint32_t count = 0;
  KSIterator *iterators = nullptr;  // the chain of those that walk this list
  ks_mutex_ptr lock;                // guards all but the hooks and the option
  ks_list_hooks_t hooks;
  const ks_iter_steps_t *steps = &ks_list_steps;
  ks_entry_t *head = nullptr;
  ks_entry_t *tail = nullptr;
};

enum ks_direction : int { KS_DIRECTION_NONE = 0, KS_FORWARD = 1, KS_BACKWARD = 2 };

struct KSIterator : ks_object_t {
  KSList *list = nullptr;
  ks_entry_t *current = nullptr;
  bool moved = false;  // the current entry was moved under it
  ks_direction direction = KS_DIRECTION_NONE;
  KSIterator *next_of_list = nullptr;
};

// Holds the list's lock, if it takes one.
class ks_list_hold {
 public:
  explicit ks_list_hold(KSList &list)
      : lock_((list.flags & KS_LIST_NO_LOCK) == 0 ? list.lock.get() : nullptr) {
    if (lock_ != nullptr) lock_->lock();
  }
  ~ks_list_hold() {
    if (lock_ != nullptr) lock_->unlock();
  }
  ks_list_hold(const ks_list_hold &) = delete;
  ks_list_hold &operator=(const ks_list_hold &) = delete;

 private:
  KSMutex *lock_;
};

// Moves every iterator that stands on `entry` to a neighbour. The list is locked.
void ks_iter_move_away(KSList &list, const ks_entry_t *entry);
// True when an iterator stands on `entry`. The list is locked.
bool ks_iter_stands_on(const KSList &list, const ks_entry_t *entry);

}  // namespace qvr
