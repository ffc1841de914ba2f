#include "mmdb_updates.h"

#include "debug_words.h"
#include "err_class.h"
#include "mif_state.h"
#include "mmdb_procs.h"
#include "mmdb_stubs.h"
#include "take_list.h"
#include "xdr_records.h"
#include "xdr_shared.h"

namespace qvr {

namespace {

// A reply that is an error object and nothing else.
struct errinfo_reply {
  errobj_t *error = nullptr;
};
bool xdr_get_reply(XDR &xdr, errinfo_reply &reply) {
  return xdr_get_errinfo(xdr, reply.error);
}

template <class Reply, class Encode>
std::optional<Reply> call(CLIENT &client, std::uint32_t procedure, Encode encode) {
  Reply reply;
  auto decode = [&](XDR &xdr) { return xdr_get_reply(xdr, reply); };
  if (client.call(procedure, encode, decode, MMDB_TIMEOUT) != RPC_SUCCESS) return std::nullopt;
  return std::optional<Reply>(std::move(reply));
}

// What the session's loop asks of a result: empty means that the call itself failed.
template <class Reply>
struct outcome_t {
  std::optional<Reply> reply;
  bool empty() const { return !reply.has_value(); }
};

// One call in the session's loop. The error of a call that failed is the result.
template <class Reply, class Encode>
errobj_t *run(std::uint32_t procedure, Encode encode, std::optional<Reply> &reply) {
  auto outcome = mif_run<outcome_t<Reply>>([&](mif_t &mif) {
    outcome_t<Reply> made{call<Reply>(*mif.mif_clnt, procedure, encode)};
    if (made.empty()) mif_store_error(rpc_status_error(mif));
    return made;
  });
  reply = std::move(outcome.reply);
  return reply ? nullptr : mif_last_error();
}

template <class Encode>
errobj_t *run_errinfo(std::uint32_t procedure, Encode encode) {
  std::optional<errinfo_reply> reply;
  if (errobj_t *error = run(procedure, encode, reply)) return error;
  return reply->error;
}

bool unknown_procedure(const errobj_t *error) {
  return error != nullptr && err_is(error->code, ERR_RPC, RPC_PROCUNAVAIL);
}
bool unknown_version(const errobj_t *error) {
  return error != nullptr && err_is(error->code, ERR_RPC, RPC_PROGVERSMISMATCH);
}

// A direct list: the first node is always there.
template <class Item, class Put>
bool put_direct_list(XDR &xdr, std::span<Item> items, Put put) {
  for (std::size_t i = 0; i < items.size(); i++) {
    if (!put(items[i]) || !xdr.put_bool(i + 1 < items.size())) return false;
  }
  return !items.empty();
}

bool put_present(XDR &xdr, const ksui &id) {
  return xdr.put_u32(1) && xdr_put_ksui(xdr, id);
}

// Takes over what a batch says; null when the batch was understood.
errobj_t *take_failures(errobj_t *error, std::optional<ssop_reply> &reply,
                        std::vector<op_failure_t> &failures) {
  if (error != nullptr) return error;
  if (reply->status != MMDB_OK) return reply->error;
  failures = std::move(reply->failures);
  return nullptr;
}

void note(std::vector<op_failure_t> &failures, const ksui &id, const errobj_t *error) {
  if (error != nullptr) failures.push_back({id, *error});
}

// One volume, for servers that know no better: it must be there, then it is written.
errobj_t *write_vol(const vol_t &vol) {
  std::optional<vol_reply> known;
  auto ask = [&](XDR &xdr) { return put_present(xdr, vol.volid); };
  if (errobj_t *error = run(60, ask, known)) return error;
  if (known->status != MMDB_OK && known->error != nullptr) return known->error;
  return run_errinfo(61, [&](XDR &xdr) { return xdr.put_u32(1) && xdr_put_vol(xdr, vol); });
}

}  // namespace

errobj_t *update_ss_list(std::span<const ss_t *const> list, std::vector<op_failure_t> &failures) {
  failures.clear();
  if (list.empty()) return nullptr;
  std::optional<ssop_reply> reply;
  auto batch = [&](XDR &xdr) {
    return put_direct_list(xdr, list, [&](const ss_t *ss) { return xdr_put_ss(xdr, *ss); });
  };
  errobj_t *error = take_failures(run(82, batch, reply), reply, failures);
  if (!unknown_procedure(error)) return error;
  KS_DEBUG(1, "Falling back to non-batch RPC for ss list update\n");
  for (const ss_t *ss : list) {
    auto one = [&](XDR &xdr) { return xdr.put_u32(1) && xdr_put_ss(xdr, *ss); };
    note(failures, ss->ssid, run_errinfo(51, one));
  }
  return nullptr;
}

errobj_t *delete_ss_list(std::span<const ksui> ids, std::vector<op_failure_t> &failures) {
  failures.clear();
  if (ids.empty()) return nullptr;
  std::optional<ssop_reply> reply;
  auto batch = [&](XDR &xdr) {
    return put_direct_list(xdr, ids, [&](const ksui &id) { return xdr_put_ksui(xdr, id); });
  };
  errobj_t *error = take_failures(run(84, batch, reply), reply, failures);
  if (!unknown_procedure(error) && !unknown_version(error)) return error;
  KS_DEBUG(1, "Falling back to non-batch RPC for ss list deletion\n");
  for (const ksui &id : ids) {
    auto one = [&](XDR &xdr) { return put_present(xdr, id) && xdr.put_u32(0); };
    note(failures, id, run_errinfo(52, one));
  }
  return nullptr;
}

errobj_t *update_vol(const vol_t &vol, std::uint32_t what, bool flag) {
  errobj_t *error = run_errinfo(79, [&](XDR &xdr) {
    return xdr.put_u32(1) && xdr_put_vol(xdr, vol) && xdr.put_u32(what) && xdr.put_bool(flag);
  });
  return unknown_procedure(error) ? write_vol(vol) : error;
}

errobj_t *update_vol_list(std::span<const vol_t *const> list, std::uint32_t what, bool flag,
                          std::vector<ksui> &failed) {
  failed.clear();
  if (list.empty()) return nullptr;
  std::optional<volops_reply> reply;
  auto batch = [&](XDR &xdr) {
    return put_direct_list(xdr, list, [&](const vol_t *vol) { return xdr_put_vol(xdr, *vol); }) &&
           xdr.put_u32(what) && xdr.put_bool(flag);
  };
  errobj_t *error = run(80, batch, reply);
  if (error == nullptr) {
    failed = std::move(reply->failed);
    return reply->error;
  }
  if (!unknown_procedure(error)) return error;
  error = nullptr;
  for (const vol_t *vol : list) {
    if (errobj_t *one = write_vol(*vol)) {
      failed.push_back(vol->volid);
      error = one;
    }
  }
  return error;
}

ss_list get_ss_related(const ss_related_t &asked) {
  auto oldest = [&](XDR &xdr) { return put_present(xdr, asked.ssid) && xdr.put_i64(asked.first); };
  auto shared = [&](XDR &xdr) {
    return oldest(xdr) && xdr.put_i64(asked.second) && put_present(xdr, asked.other);
  };
  auto older = [&](XDR &xdr) { return shared(xdr) && xdr.put_bool(false); };
  auto newest = [&](XDR &xdr) {
    return shared(xdr) && xdr_put_text(xdr, asked.text) &&
           xdr_put_optional_attrlist(xdr, asked.attrs);
  };
  return mif_run<ss_list>([&](mif_t &mif) {
    CLIENT &client = *mif.mif_clnt;
    auto refused = [&](const std::optional<ss_reply> &reply) {
      return !reply && client.last_error().status == RPC_PROCUNAVAIL;
    };
    std::optional<ss_reply> reply = call<ss_reply>(client, 89, newest);
    if (refused(reply)) reply = call<ss_reply>(client, 83, older);
    if (refused(reply)) reply = call<ss_reply>(client, 50, oldest);
    return take_ss_list(mif, std::move(reply));
  });
}

errobj_t *fragment_op(const ksui &ssid, std::int64_t cloneid, const frag_t &frag) {
  if (mif_connect() == MIF_CONNECTED && !mif_get().mif_fragop_ok)
    return err_from_table(ERR_RPC, RPC_PROCUNAVAIL);
  errobj_t *error = run_errinfo(MMDB_FRAGMENT_OP, [&](XDR &xdr) {
    return put_present(xdr, ssid) && xdr.put_i64(cloneid) && xdr.put_u32(1) &&
           xdr_put_frag(xdr, frag);
  });
  if (unknown_procedure(error)) mif_get().mif_fragop_ok = false;
  return error;
}

}  // namespace qvr
