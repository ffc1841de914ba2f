// The inside of a session, for the modules that make its calls.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <utility>

#include "attrlist.h"
#include "clidmap_cache.h"
#include "client.h"
#include "errobj.h"
#include "mif_catalogue.h"
#include "record_cache.h"
#include "session.h"

namespace qvr {

// Error codes of this range tell an RPC status in their number; of the other one, a failure of
// authentication that the user has to see.
constexpr bool is_rpc_code(std::int32_t code) {
  return code >= 20000 && code <= 29999;
}

struct mif_t {
  ~mif_t();

  bool mif_noretry = false;
  std::unique_ptr<CLIENT> mif_clnt;
  std::unique_ptr<mif_catalogue> mif_catalog;  // the open one, with mif_storage
  errobj_t mif_error;                          // code 0: none
  std::optional<std::string> mif_server;
  ss_cache mif_ss_cache;
  vol_cache mif_vol_cache;
  std::uint32_t mif_cache_limit = 0;  // 0: not set yet
  bool mif_clientid_names = false;
  bool mif_storage = false;
  mif_catalogue_opener mif_open_catalogue = nullptr;  // with mif_storage
  attrlist mif_storage_attrs;
  bool mif_fragop_ok = false;         // the server is not known to refuse procedure 91
  std::int64_t mif_retry_since = 0;   // first failure of the timed retry; 0: none runs
  std::uint32_t mif_retry_count = 0;  // retries of the timed retry so far
  bool mif_retry_once = false;        // the one-shot retry is used up
  clidmap_cache mif_clidmap_cache;
};

// The calling thread's session, made at its first use.
mif_t &mif_get();

// The error of the last call on the handle, after what it asks of the connection has been done;
// null when there was none. In the thread's ring.
errobj_t *rpc_status_error(mif_t &mif);

// What a request that needs a server is told with mif_storage. In the thread's ring.
errobj_t *mif_no_server();

// True when an error means that the connection is lost: an RPC failure other than an unknown
// version or procedure.
bool mif_wants_reconnect(const errobj_t *error);

// Whether a call without a result is to be made once more, on a new connection.
bool mif_retry_once_test(mif_t &mif, bool result, const errobj_t *error);

// Whether a look-up is to be tried again within `seconds` of its first failure; sleeps before it
// says yes. `name` (may be null) is what the look-up is called in debug lines.
bool mif_retry_timed(const char *name, const errobj_t *error, std::uint32_t seconds);

// Connects, makes the call and repeats it once over a new connection when the first was lost. A
// session on storage has no server to call: that is an error.
// `call` is asked for a Result, which has empty(); it leaves its error in the session.
template <class Result, class Call>
Result mif_run(Call call) {
  mif_t &mif = mif_get();
  // A call inside another's run, such as a look-up of a client id, has its own second try and
  // leaves the outer one's as it was.
  const bool outer_used = std::exchange(mif.mif_retry_once, false);
  for (;;) {
    Result result{};
    if (mif.mif_storage)
      mif_store_error(mif_no_server());
    else if (mif_connect() == MIF_CONNECTED)
      result = call(mif);
    if (mif_retry_once_test(mif, !result.empty(), mif_last_error())) continue;
    mif.mif_retry_once = outer_used;
    return result;
  }
}

}  // namespace qvr
