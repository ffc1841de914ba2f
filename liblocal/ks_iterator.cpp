#include <cerrno>
#include <new>

#include "ks_errors.h"
#include "ks_list_parts.h"

namespace qvr {

namespace {

ks_entry_t *step_first(KSList &list, KSIterator &) {
  return list.head;
}

ks_entry_t *step_last(KSList &list, KSIterator &) {
  return list.tail;
}

ks_entry_t *step_next(KSList &list, KSIterator &iterator) {
  if (iterator.current != nullptr) return iterator.current->next;
  return iterator.direction == KS_DIRECTION_NONE ? list.head : nullptr;
}

ks_entry_t *step_previous(KSList &list, KSIterator &iterator) {
  if (iterator.current != nullptr) return iterator.current->previous;
  return iterator.direction == KS_DIRECTION_NONE ? list.tail : nullptr;
}

using step_fn = ks_entry_t *(*ks_iter_steps_t::*)(KSList &, KSIterator &);

int read_current(KSIterator &iterator, void **value, void **key) {
  iterator.moved = false;
  ks_entry_t *entry = iterator.current;
  if (value != nullptr) *value = entry != nullptr ? entry->value : nullptr;
  if (key != nullptr) *key = entry != nullptr ? entry->key : nullptr;
  return entry != nullptr ? KS_OK : ks_set_error(ENOENT, KS_ERROR_ERRNO);
}

// A step to an end goes there whatever happened before; a step to a neighbour reads where the
// iterator stands when it was moved.
int take_step(KSIterator *iterator, step_fn step, ks_direction direction, bool to_end, void **value,
              void **key) {
  if (value != nullptr) *value = nullptr;
  if (key != nullptr) *key = nullptr;
  if (iterator == nullptr) return ks_null_argument();
  KSList &list = *iterator->list;
  ks_list_hold hold(list);
  if (to_end || !iterator->moved) iterator->current = (list.steps->*step)(list, *iterator);
  iterator->direction = direction;
  return read_current(*iterator, value, key);
}

void end_iterator(ks_object_t *object) {
  std::unique_ptr<KSIterator> iterator(static_cast<KSIterator *>(object));
  KSList &list = *iterator->list;
  ks_list_hold hold(list);
  KSIterator **link = &list.iterators;
  while (*link != nullptr && *link != iterator.get()) link = &(*link)->next_of_list;
  if (*link != nullptr) *link = iterator->next_of_list;
}

}  // namespace

const ks_iter_steps_t ks_list_steps = {step_first, step_next, step_previous, step_last};

KSIterator *ks_iter_create(KSList *list) {
  if (list == nullptr) {
    ks_null_argument();
    return nullptr;
  }
  std::unique_ptr<KSIterator> made(new (std::nothrow) KSIterator);
  if (made == nullptr) {
    ks_set_error(ENOMEM, KS_ERROR_ERRNO);
    return nullptr;
  }
  made->list = list;
  ks_object_register(made.get(), end_iterator);
  ks_list_hold hold(*list);
  made->next_of_list = list->iterators;
  list->iterators = made.get();
  return made.release();
}

int ks_iter_destroy(KSIterator *iterator) {
  if (iterator == nullptr) return ks_null_argument();
  return ks_object_drop(iterator) < 0 ? KS_EINVAL : KS_OK;
}

int ks_iter_first(KSIterator *iterator, void **value, void **key) {
  return take_step(iterator, &ks_iter_steps_t::first, KS_FORWARD, true, value, key);
}

int ks_iter_next(KSIterator *iterator, void **value, void **key) {
  return take_step(iterator, &ks_iter_steps_t::next, KS_FORWARD, false, value, key);
}

int ks_iter_previous(KSIterator *iterator, void **value, void **key) {
  return take_step(iterator, &ks_iter_steps_t::previous, KS_BACKWARD, false, value, key);
}

int ks_iter_last(KSIterator *iterator, void **value, void **key) {
  return take_step(iterator, &ks_iter_steps_t::last, KS_BACKWARD, true, value, key);
}

int ks_iter_current(KSIterator *iterator, void **value, void **key) {
  if (value != nullptr) *value = nullptr;
  if (key != nullptr) *key = nullptr;
  if (iterator == nullptr) return ks_null_argument();
  ks_list_hold hold(*iterator->list);
  return read_current(*iterator, value, key);
}

void ks_iter_move_away(KSList &list, const ks_entry_t *entry) {
  for (KSIterator *it = list.iterators; it != nullptr; it = it->next_of_list) {
    if (it->current != entry) continue;
    ks_entry_t *ahead = it->direction == KS_BACKWARD ? entry->previous : entry->next;
    ks_entry_t *behind = it->direction == KS_BACKWARD ? entry->next : entry->previous;
    it->current = ahead != nullptr ? ahead : behind;
    it->moved = true;
  }
}

bool ks_iter_stands_on(const KSList &list, const ks_entry_t *entry) {
  for (const KSIterator *it = list.iterators; it != nullptr; it = it->next_of_list) {
    if (it->current == entry) return true;
  }
  return false;
}

}  // namespace qvr
