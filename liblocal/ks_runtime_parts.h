// The runtime's own mutexes, for its own files.
#pragma once

#include "ks_mutex.h"

namespace qvr {

struct ks_runtime_mutexes_t {
  KSMutex *program_name = nullptr;
  KSMutex *server_name = nullptr;
};

// Starts the runtime when it has not started; null members once it has ended.
ks_runtime_mutexes_t ks_runtime_mutexes();

// Holds a mutex that may be gone: after the end of the runtime one thread is left.
class ks_name_hold {
 public:
  explicit ks_name_hold(KSMutex *mutex) : mutex_(mutex) {
    if (mutex_ != nullptr) mutex_->lock();
  }
  ~ks_name_hold() {
    if (mutex_ != nullptr) mutex_->unlock();
  }
  ks_name_hold(const ks_name_hold &) = delete;
  ks_name_hold &operator=(const ks_name_hold &) = delete;

 private:
  KSMutex *mutex_;
};

}  // namespace qvr
