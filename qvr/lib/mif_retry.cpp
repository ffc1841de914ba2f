// When a call of the session is tried again, and when its connection is given up.
#include "debug_words.h"
#include "err_class.h"
#include "mif_env.h"
#include "mif_state.h"

namespace qvr {

namespace {

constexpr std::uint32_t TIMED_PAUSE_MS = 5000;

// Closes the connection; the next connect opens a new one to the same server.
void force_reconnect(mif_t &mif, const errobj_t &error) {
  if (!mif.mif_server) {
    mif_set_server({});
    return;
  }
  std::string server = *mif.mif_server;
  KS_DEBUG(1, "Forcing reconnect to media database service on server '%s' (%d: %s)\n",
           server.c_str(), error.code, error.text.empty() ? "<NULL>" : error.text.c_str());
  mif_set_server({});
  mif_set_server(server);
}

bool timed_retry_goes_on(mif_t &mif, const char *name, const errobj_t *error,
                         std::uint32_t seconds) {
  if (error == nullptr) {
    if (name != nullptr && mif.mif_retry_count != 0)
      KS_DEBUG(1, "%s successful after %u retries\n", name, mif.mif_retry_count);
    return false;
  }
  if (mif_env().exiting() || !mif_wants_reconnect(error) || seconds == 0) return false;
  std::int64_t now = mif_env().now();
  if (mif.mif_retry_since != 0) return now <= mif.mif_retry_since + seconds;
  mif.mif_retry_since = now;
  if (name != nullptr) KS_DEBUG(2, "%s will be retried (%s)\n", name, error->text.c_str());
  return true;
}

}  // namespace

bool mif_wants_reconnect(const errobj_t *error) {
  if (error == nullptr || !is_rpc_code(error->code)) return false;
  int status = err_number(error->code);
  return status != RPC_SUCCESS && status != RPC_PROGVERSMISMATCH && status != RPC_PROCUNAVAIL;
}

errobj_t *rpc_status_error(mif_t &mif) {
  if (mif.mif_clnt == nullptr) return nullptr;
  errobj_t *error = clnt_error(*mif.mif_clnt);
  if (error == nullptr || (is_rpc_code(error->code) && err_number(error->code) == RPC_SUCCESS))
    return nullptr;
  if (mif_wants_reconnect(error)) force_reconnect(mif, *error);
  return error;
}

bool mif_retry_once_test(mif_t &mif, bool result, const errobj_t *error) {
  mif.mif_retry_once =
      !result && !mif.mif_retry_once && mif.mif_retry_since == 0 && mif_wants_reconnect(error);
  return mif.mif_retry_once;
}

bool mif_retry_timed(const char *name, const errobj_t *error, std::uint32_t seconds) {
  mif_t &mif = mif_get();
  if (timed_retry_goes_on(mif, name, error, seconds)) {
    mif_env().sleep_ms(TIMED_PAUSE_MS);
    mif.mif_retry_count++;
    return true;
  }
  mif.mif_retry_since = 0;
  mif.mif_retry_count = 0;
  return false;
}

}  // namespace qvr
