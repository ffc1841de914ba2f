#include "ks_object.h"

#include <cerrno>
#include <mutex>
#include <new>
#include <vector>

#include "debug_words.h"
#include "immortal.h"
#include "ks_errors.h"
#include "ks_wrappers.h"

namespace qvr {

namespace {

struct registry_slot_t {
  ks_object_t *object = nullptr;
  std::int32_t uses = 0;
  ks_object_destructor destructor = nullptr;
};

struct registry_t {
  std::mutex lock;  // guards all below
  std::vector<registry_slot_t> slots;
  std::size_t first_free = 0;  // no slot below it is free
  std::uint32_t live = 0;
};

constexpr std::size_t SLOT_STEP = 32;

registry_t &registry() {
  static immortal<registry_t> the_registry;
  return *the_registry;
}

// Null when the slot that `object` names does not hold it. The registry is locked.
registry_slot_t *slot_of(registry_t &all, const ks_object_t *object) {
  auto index = static_cast<std::size_t>(object->slot);
  if (object->slot < 0 || index >= all.slots.size()) return nullptr;
  return all.slots[index].object == object ? &all.slots[index] : nullptr;
}

int not_registered() {
  ks_set_error(EINVAL, KS_ERROR_ERRNO);
  KS_UNEXPECTED(ks_strerror(EINVAL));
  return -1;
}

}  // namespace

int ks_object_register(ks_object_t *object, ks_object_destructor destructor) {
  if (object == nullptr) return ks_null_argument();
  registry_t &all = registry();
  std::lock_guard hold(all.lock);
  std::size_t index = all.first_free;
  while (index < all.slots.size() && all.slots[index].object != nullptr) index++;
  if (index == all.slots.size()) all.slots.resize(index + SLOT_STEP);
  all.slots[index] = {object, 1, destructor};
  all.first_free = index + 1;
  all.live++;
  object->slot = static_cast<std::int32_t>(index);
  object->flags |= KS_OBJECT_VALID;
  return KS_OK;
}

int ks_object_hold(ks_object_t *object) {
  if (object == nullptr) return not_registered();
  registry_t &all = registry();
  std::unique_lock hold(all.lock);
  registry_slot_t *slot = slot_of(all, object);
  if (slot == nullptr) {
    hold.unlock();
    return not_registered();
  }
  return ++slot->uses;
}

int ks_object_release(ks_object_t *object) {
  if (object == nullptr) return not_registered();
  registry_t &all = registry();
  std::unique_lock hold(all.lock);
  registry_slot_t *slot = slot_of(all, object);
  if (slot == nullptr) {
    hold.unlock();
    return not_registered();
  }
  int left = --slot->uses;
  if (left == 0) {
    auto index = static_cast<std::size_t>(object->slot);
    *slot = {};
    if (index < all.first_free) all.first_free = index;
    all.live--;
    object->flags &= ~KS_OBJECT_VALID;
  }
  return left;
}

int ks_object_drop(ks_object_t *object) {
  ks_object_destructor destructor = nullptr;
  if (object != nullptr) {
    registry_t &all = registry();
    std::lock_guard hold(all.lock);
    if (registry_slot_t *slot = slot_of(all, object)) destructor = slot->destructor;
  }
  int left = ks_object_release(object);
  if (left == 0 && destructor != nullptr) destructor(object);
  return left;
}

ks_registry_size_t ks_registry_size() {
  registry_t &all = registry();
  std::lock_guard hold(all.lock);
  return {all.live, static_cast<std::uint32_t>(all.slots.size())};
}

}  // namespace qvr
