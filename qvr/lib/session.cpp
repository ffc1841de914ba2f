#include "session.h"

#include <cerrno>

#include "client_identity.h"
#include "clnt_error.h"
#include "current_client.h"
#include "debug_words.h"
#include "err_class.h"
#include "mif_env.h"
#include "mif_state.h"
#include "mmdb_procs.h"
#include "mmdb_stubs.h"
#include "msg.h"
#include "thread_key.h"

namespace qvr {

namespace {

constexpr int PINGS = 5;
constexpr std::uint32_t PING_PAUSE_MS = 2500;
constexpr std::uint32_t CONNECT_PAUSE_MS = 5000;

thread_key<mif_t> mif_key("create_thread_key_mif");

std::string_view server_of(const mif_t &mif) {
  return mif.mif_server ? std::string_view(*mif.mif_server) : std::string_view();
}

void close_handle(mif_t &mif) {
  if (mif.mif_clnt != nullptr) clnt_auth_destroy(mif.mif_clnt);
  mif.mif_catalog.reset();
}

int connect_storage(mif_t &mif, const attrlist &attrs) {
  if (mif.mif_catalog != nullptr) return MIF_CONNECTED;
  errobj_t *error = mif.mif_open_catalogue(attrs, mif.mif_catalog);
  mif_store_error(error);
  return error == nullptr && mif.mif_catalog != nullptr ? MIF_CONNECTED : -1;
}

// Proves the connection with the null procedure. Only silence is worth another try.
clnt_stat ping(mif_t &mif) {
  auto nothing = [](XDR &) { return true; };
  clnt_stat status = RPC_SUCCESS;
  mif.mif_clnt->set_timeout(MMDB_TIMEOUT);
  for (int i = 0; i < PINGS; i++) {
    if (i != 0) mif_env().sleep_ms(PING_PAUSE_MS);
    status = mif.mif_clnt->call(MMDB_NULL, nothing, nothing, MMDB_TIMEOUT);
    if (status != RPC_TIMEDOUT) break;
  }
  return status;
}

errobj_t *unknown_host(const mif_t &mif, std::int32_t code) {
  std::string_view server = server_of(mif);
  return err_create(87927, code, "Media database server host `%s' is unknown.\n",
                    {{MSG_ARG_HOST, server.empty() ? std::string_view("?") : server}});
}

// What one round of connecting came to.
enum class round_t { connected, again, again_later, over };

round_t settle(const mif_t &mif, round_t next) {
  return mif.mif_noretry || mif_env().exiting() ? round_t::over : next;
}

round_t connect_round(mif_t &mif) {
  mif_clear_error();
  kstr_target target;
  errobj_t *error = mif_env().connect(server_of(mif), mif.mif_clnt, target);
  if (error == nullptr && mif.mif_clnt == nullptr) error = clnt_create_error();
  if (mif.mif_clnt == nullptr || error != nullptr) {
    close_handle(mif);
    bool refused = target.host.empty();  // before there was anything to connect to
    if (refused) {
      KS_DEBUG(1, "kstr_auth for mmdb connection failed: %s; retrying...\n",
               error != nullptr ? error->text.c_str() : "");
    }
    if (error != nullptr && err_is(error->code, ERR_RPC, RPC_UNKNOWNHOST)) {
      mif_store_error(unknown_host(mif, error->code));
      return round_t::over;
    }
    mif_store_error(error);
    return settle(mif, refused ? round_t::again : round_t::again_later);
  }

  clnt_stat status = ping(mif);
  if (status == RPC_SUCCESS) {
    mif.mif_clnt->set_wait_mode(CLNT_WAIT_NONE);
    mif_clear_error();
    if (!mif.mif_server) mif.mif_server = mif_env().local_host();
    return round_t::connected;
  }
  close_handle(mif);
  mif_store_error(err_from_table(ERR_RPC, status));
  return settle(mif, round_t::again_later);
}

}  // namespace

errobj_t *mif_no_server() {
  return err_from_text(ERR_MDB, 2, "The catalogue on storage cannot answer this request.");
}

mif_t::~mif_t() {
  if (mif_clnt != nullptr) clnt_auth_destroy(mif_clnt);
}

mif_t &mif_get() {
  return mif_key.get();
}

void mif_set_noretry(bool flag) {
  mif_get().mif_noretry = flag;
}

void mif_set_server(std::string_view name) {
  mif_t &mif = mif_get();
  if (mif.mif_clnt != nullptr || mif.mif_catalog != nullptr) {
    if (mif.mif_server && name.data() != nullptr) {
      if (name == *mif.mif_server) return;
      if (same_client(name, *mif.mif_server)) {
        mif.mif_server = name;
        return;
      }
    }
    close_handle(mif);
  }
  cc_set_server(name);
  if (name.data() != nullptr)
    mif.mif_server = name;
  else
    mif.mif_server.reset();
}

int mif_connect() {
  mif_t &mif = mif_get();
  mif_clear_error();
  if (mif.mif_storage) return connect_storage(mif, mif.mif_storage_attrs);
  if (mif.mif_clnt != nullptr) return MIF_CONNECTED;
  mif.mif_fragop_ok = true;
  for (;;) {
    switch (connect_round(mif)) {
      case round_t::connected:
        return MIF_CONNECTED;
      case round_t::over:
        return -1;
      case round_t::again_later:
        mif_env().sleep_ms(CONNECT_PAUSE_MS);
        break;
      case round_t::again:
        break;
    }
  }
}

errobj_t *mif_last_error() {
  const mif_t &mif = mif_get();
  return mif.mif_error.code != 0 ? err_dup(&mif.mif_error) : nullptr;
}

void mif_clear_error() {
  mif_t &mif = mif_get();
  if (mif.mif_error.code != 0) mif.mif_error = errobj_t();
}

void mif_store_error(const errobj_t *error) {
  if (error == nullptr)
    mif_clear_error();
  else
    mif_get().mif_error = *error;
}

void mif_close() {
  const mif_t &mif = mif_get();
  if (mif.mif_clnt != nullptr || mif.mif_catalog != nullptr) mif_set_server({});
}

void mif_reset() {
  mif_t &mif = mif_get();
  close_handle(mif);
  mif.mif_server.reset();
  mif.mif_storage = false;
  mif.mif_storage_attrs.clear();
  mif.mif_ss_cache.clear();
  mif.mif_vol_cache.clear();
  mif_clear_error();
}

bool mif_set_clientid_names(bool set, bool value) {
  mif_t &mif = mif_get();
  if (set) mif.mif_clientid_names = value;
  return mif.mif_clientid_names;
}

int mif_set_index_subspace(const attrlist &attrs) {
  mif_t &mif = mif_get();
  if (!mif.mif_storage) return mif_connect();
  if (mif.mif_catalog == nullptr) return connect_storage(mif, attrs);
  mif_clear_error();
  mif.mif_catalog->set_subspace(attrs);
  return MIF_CONNECTED;
}

}  // namespace qvr
