// Process-wide objects that must outlive every static destructor and every thread.
#pragma once

#include <cstddef>
#include <new>
#include <utility>

namespace qvr {

// Holds a T that is built in place and never destroyed: threads may still run, and the exit list
// may still be called, while the objects of other files are being destroyed.
template <class T>
class immortal {
 public:
  template <class... Args>
  explicit immortal(Args &&...args) {
    ::new (static_cast<void *>(place_)) T(std::forward<Args>(args)...);
  }
  immortal(const immortal &) = delete;
  immortal &operator=(const immortal &) = delete;

  T &get() { return *std::launder(reinterpret_cast<T *>(place_)); }
  T &operator*() { return get(); }
  T *operator->() { return &get(); }

 private:
  alignas(T) std::byte place_[sizeof(T)];
};

}  // namespace qvr
