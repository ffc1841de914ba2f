// State of the calling thread behind a thread key (POSIX.1-2017, pthread_key_create).
#pragma once

#include <pthread.h>

#include <cstdio>
#include <cstdlib>
#include <mutex>

namespace qvr {

// One object a thread, made at the thread's first use and destroyed at its end. A program without
// room for the key cannot work: it prints `name` with the reason and exits with status 1. Instances
// are constant-initialised statics.
template <class T>
class thread_key {
 public:
  explicit constexpr thread_key(const char *name) : name_(name) {}

  T &get() {
    std::call_once(once_, [this] {
      if (pthread_key_create(&key_, [](void *state) { delete static_cast<T *>(state); }) == 0)
        return;
      std::fprintf(stderr, "%s: unable to create thread-local storage key.", name_);
      std::exit(1);
    });
    void *state = pthread_getspecific(key_);
    if (state == nullptr) {
      state = new T();
      pthread_setspecific(key_, state);
    }
    return *static_cast<T *>(state);
  }

 private:
  const char *name_;
  std::once_flag once_;
  pthread_key_t key_ = 0;
};

}  // namespace qvr
