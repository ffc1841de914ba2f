// Whether reverse look-ups are made at all, and how.
#include <csignal>
#include <iterator>

#include "debug_words.h"
#include "host_parts.h"
#include "ks_errors.h"
#include "ks_wrappers.h"
#include "msg.h"

namespace qvr {

namespace {

constexpr const char *state_words[] = {"banned", "uncached", "cached"};

KSMutex &_Ks_inet_rdns_mutex() {
  static KSMutex &mutex = host_make_mutex();
  return mutex;
}
ks_rdns_state rdns_state = KS_RDNS_BANNED;  // guarded by that mutex

bool lock_state() {
  int rc = _Ks_inet_rdns_mutex().lock();
  if (rc == KS_OK) return true;
  int error = ks_errno_of(rc);
  msg_print(208158, error + 12000, MSG_STDERR, "Unable to lock _Ks_inet_rdns_mutex: %s\n",
            {{MSG_ARG_ERRTEXT, ks_strerror(error)}});
  return false;
}

void unlock_state() {
  int rc = _Ks_inet_rdns_mutex().unlock();
  if (rc == KS_OK) return;
  int error = ks_errno_of(rc);
  msg_print(208161, error + 12000, MSG_STDERR, "Unable to unlock _Ks_inet_rdns_mutex: %s\n",
            {{MSG_ARG_ERRTEXT, ks_strerror(error)}});
  std::raise(SIGTERM);
}

}  // namespace

bool ks_set_rdns_state(const char *word) {
  if (word == nullptr) {
    msg_print(208159, 14022, MSG_STDERR, "Invalid Reverse DNS state 'NULL' selected.\n");
    return false;
  }
  for (std::size_t i = 0; i < std::size(state_words); i++) {
    if (!host_same_text(state_words[i], word)) continue;
    if (!lock_state()) return false;
    rdns_state = static_cast<ks_rdns_state>(i);
    unlock_state();
    KS_DEBUG(1, "Reverse DNS state set to '%s'.\n", state_words[i]);
    return true;
  }
  msg_print(208160, 14022, MSG_STDERR, "Invalid Reverse DNS state '%s' selected.\n",
            {{MSG_ARG_TEXT, word}});
  return false;
}

ks_rdns_state ks_get_rdns_state() {
  if (!lock_state()) return KS_RDNS_UNKNOWN;
  ks_rdns_state state = rdns_state;
  unlock_state();
  return state;
}

}  // namespace qvr
