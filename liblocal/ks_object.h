// The registry of live runtime objects: what is alive, and how many owners it has.
#pragma once

#include <cstdint>

namespace qvr {

inline constexpr std::uint32_t KS_OBJECT_VALID = 1;

// What every registered object begins with.
struct ks_object_t {
  std::uint32_t flags = 0;
  std::int32_t slot = -1;  // its place in the registry
};

using ks_object_destructor = void (*)(ks_object_t *);

// Enters `object` in the first free slot with a use count of 1 and marks it valid. `destructor`
// ends the object once its last owner is gone. 0, or a portable number. Any thread.
int ks_object_register(ks_object_t *object, ks_object_destructor destructor);

// One more owner. The new use count, or -1 (logged) when the slot does not hold `object`.
int ks_object_hold(ks_object_t *object);

// One owner less. The count left, and at 0 the slot is empty: the caller destroys the object. -1,
// logged as an invalid argument, when the slot does not hold `object`.
int ks_object_release(ks_object_t *object);

// Releases, and calls the destructor when that was the last owner. The count left, or -1.
int ks_object_drop(ks_object_t *object);

// Objects alive, and slots taken for them so far.
struct ks_registry_size_t {
  std::uint32_t live;
  std::uint32_t slots;
};
ks_registry_size_t ks_registry_size();

}  // namespace qvr
