#include "rap_network.h"

#include <algorithm>
#include <chrono>
#include <mutex>

#include "err_class.h"
#include "rap_env.h"
#include "rap_protocol.h"
#include "thread_key.h"

namespace qvr {

namespace {

constexpr std::chrono::microseconds RAP_TIMEOUT = std::chrono::seconds(25);
constexpr unsigned LONGEST_PAUSE = 7;  // seconds

struct rap_state_t {
  bool noretry = false;
};
thread_key<rap_state_t> rap_key("create_thread_key_rap");

bool is_busy(const errobj_t *error) {
  return error != nullptr && error->code >= 33000 && error->code <= 33999;
}

class network_resdb final : public resdb_t {
 public:
  network_resdb(const attrlist &attrs, bool flag_a, bool flag_b, std::unique_ptr<CLIENT> client)
      : attrs_(attrs), flag_a_(flag_a), flag_b_(flag_b), client_(std::move(client)) {}
  ~network_resdb() override { clnt_auth_destroy(client_); }

  errobj_t *rap_query(const attrlist &query, std::uint32_t limit, residlist_t &ids) override {
    rap_ids_reply reply;
    errobj_t *error = patiently(RAP_QUERY, rap_query_args{limit, query}, reply);
    ids = std::move(reply.ids);
    return error;
  }

  errobj_t *rap_retrieve(const residlist_t &ids, const attrlist &wanted,
                         reslist_t &resources) override {
    rap_res_reply reply;
    errobj_t *error = patiently(RAP_GET, rap_get_args{RAP_GET_LIMIT, ids, {}, wanted}, reply);
    resources = std::move(reply.resources);
    return error;
  }

 private:
  template <class Args, class Reply>
  errobj_t *once(rap_proc procedure, const Args &args, Reply &reply) {
    std::lock_guard guard(mutex_);
    auto encode = [&](XDR &xdr) { return xdr_put_args(xdr, args); };
    auto decode = [&](XDR &xdr) { return xdr_get_reply(xdr, reply); };
    reply = Reply();
    if (client_->call(procedure, encode, decode, RAP_TIMEOUT) != RPC_SUCCESS) {
      reply = Reply();
      return clnt_error(*client_);
    }
    return reply.status == RAP_ERROR ? reply.error : nullptr;
  }

  // A busy server is asked again, after a pause that grows, for as long as it is busy. The pause
  // holds no lock.
  template <class Args, class Reply>
  errobj_t *patiently(rap_proc procedure, const Args &args, Reply &reply) {
    for (unsigned failures = 1;; failures++) {
      errobj_t *error = once(procedure, args, reply);
      if (!is_busy(error) || rap_key.get().noretry) return error;
      rap_env().sleep_seconds(std::min(failures, LONGEST_PAUSE));
    }
  }

  std::mutex mutex_;  // one RPC at a time
  const attrlist attrs_;
  [[maybe_unused]] const bool flag_a_;
  [[maybe_unused]] const bool flag_b_;
  std::unique_ptr<CLIENT> client_;
};

}  // namespace

resdb_ptr make_network_resdb(const attrlist &attrs, bool flag_a, bool flag_b,
                             std::unique_ptr<CLIENT> client) {
  return resdb_ptr(
      std::make_unique<network_resdb>(attrs, flag_a, flag_b, std::move(client)).release());
}

void rap_set_noretry(bool flag) {
  rap_key.get().noretry = flag;
}

}  // namespace qvr
