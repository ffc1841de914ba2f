// The client id map of the media database, and the ids and names of clients by it.
#include <cerrno>

#include "client_identity.h"
#include "current_client.h"
#include "err_class.h"
#include "mif_state.h"
#include "mmdb_stubs.h"

namespace qvr {

namespace {

struct answer_t {
  std::optional<clidmap> entry;
  bool empty() const { return !entry.has_value(); }
};

answer_t ask_map(mif_t &mif, const mmdb_clidmap_args &asked) {
  std::optional<clidmap_reply> reply = mmdb_get_clidmap(*mif.mif_clnt, asked);
  answer_t answer;
  if (!reply) {
    if (const errobj_t *error = rpc_status_error(mif)) mif_store_error(error);
  } else if (reply->status == MMDB_OK) {
    answer.entry = std::move(reply->entry);
  } else if (reply->status != MMDB_NO_ENTRY) {
    mif_store_error(reply->error);
  }
  return answer;
}

}  // namespace

errobj_t *clidmap_lookup(const ksui &id, std::string_view name, std::optional<clidmap> &entry) {
  entry.reset();
  bool by_name = id.is_null() && !name.empty();
  std::string key = by_name ? std::string(name) : ksui_text(id, ksui_form::long_form);
  clidmap_cache &cache = mif_get().mif_clidmap_cache;
  std::string value;
  clidmap known;
  if (cache.find(key, value) && (!by_name || clientid_parse(value, known.clientid))) {
    if (by_name) {
      known.clientname = name;
    } else {
      known.clientid = id;
      known.clientname = value;
    }
    entry = std::move(known);
    return nullptr;
  }
  answer_t answer = mif_run<answer_t>([&](mif_t &mif) { return ask_map(mif, {id, name}); });
  if (answer.empty()) return mif_last_error();
  cache.store(key, by_name ? ksui_text(answer.entry->clientid, ksui_form::long_form)
                           : answer.entry->clientname);
  entry = std::move(answer.entry);
  return nullptr;
}

bool client_id_of(std::string_view name, ksui &id) {
  bool current = cc_is_current(name);
  if (current && !cc_get().cc_clientid.is_null()) {
    id = cc_get().cc_clientid;
    return true;
  }
  if (clientid_parse(name, id)) return true;
  std::optional<clidmap> entry;
  errobj_t *error = clidmap_lookup(ksui(), name, entry);
  if (!entry) {
    if (error != nullptr) {
      note_client_lookup_failure();
      err_print(error);
    }
    id = ksui();
    return false;
  }
  id = entry->clientid;
  if (current) cc_get().cc_clientid = id;
  return true;
}

std::string client_id_text(std::string_view name) {
  ksui id;
  if (clientid_parse(name, id)) return std::string(name);
  return !name.empty() && client_id_of(name, id) ? ksui_text(id, ksui_form::long_form)
                                                 : std::string();
}

errobj_t *get_client_name_from_id(const ksui &id, std::string &name) {
  if (id.is_null()) {
    return err_create(0, ERR_SYSTEM * 10000 + EINVAL,
                      "%s: assertion, invalid parameters or code segment\n",
                      {{MSG_ARG_TEXT, "get_client_name_from_id"}});
  }
  std::optional<clidmap> entry;
  if (errobj_t *error = clidmap_lookup(id, {}, entry)) {
    note_client_lookup_failure();
    return error;
  }
  if (!entry) {
    return err_create(86785, 85003, "Cannot get client ID map for client ID '%s'.",
                      {{MSG_ARG_TEXT, ksui_text(id, ksui_form::short_form)}});
  }
  name = entry->clientname;
  return nullptr;
}

}  // namespace qvr
