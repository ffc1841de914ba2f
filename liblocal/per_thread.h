// One object for each thread that asks for it.
#pragma once

#include <pthread.h>

#include <memory>

namespace qvr {

// The calling thread's T: made at its first use there, released when the thread ends. That of the
// main thread outlives its thread_local objects, so that functions of the exit list may use it. A
// type has one object a thread: each use has a type of its own.
template <class T>
class per_thread {
 public:
  static T &get() {
    if (object_ == nullptr) {
      object_ = std::make_unique<T>().release();
      pthread_setspecific(key(), object_);
    }
    return *object_;
  }

  // Null when the thread has none.
  static T *find() { return object_; }

  static void drop() {
    if (object_ == nullptr) return;
    pthread_setspecific(key(), nullptr);
    release(object_);
  }

 private:
  static pthread_key_t key() {
    static const pthread_key_t the_key = [] {
      pthread_key_t made{};
      pthread_key_create(&made, release);
      return made;
    }();
    return the_key;
  }

  static void release(void *object) {
    object_ = nullptr;
    std::unique_ptr<T>(static_cast<T *>(object));
  }

  // A plain pointer: the key releases what it points to.
  static inline thread_local T *object_ = nullptr;
};

}  // namespace qvr
