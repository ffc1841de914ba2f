// A media database behind the session, in memory, with a clock that the test turns.
#pragma once

#include <deque>
#include <functional>
#include <string>
#include <vector>

#include "mif_env.h"
#include "mif_state.h"
#include "mmdb_procs.h"
#include "queries.h"
#include "sample_records.h"
#include "session.h"

namespace qvr {

struct fake_answer {
  clnt_stat status = RPC_SUCCESS;
  std::string bytes;
};

class fake_client final : public CLIENT {
 public:
  using answer_fn = std::function<fake_answer(std::uint32_t procedure, const std::string &args)>;
  fake_client(answer_fn answer, int *alive) : answer_(std::move(answer)), alive_(alive) {
    auth = nullptr;
    if (alive_ != nullptr) ++*alive_;
  }
  ~fake_client() override {
    if (alive_ != nullptr) --*alive_;
  }

  clnt_stat call(std::uint32_t procedure, xdr_encoder encode, xdr_decoder decode,
                 std::chrono::microseconds timeout) override {
    timeout_ = timeout;
    xdr_memory_writer out;
    error_ = rpc_err_t();
    error_.status = RPC_CANTENCODEARGS;
    if (!encode(out)) return error_.status;
    fake_answer answer = answer_(procedure, out.bytes());
    error_.status = answer.status;
    if (answer.status == RPC_SUCCESS) {
      xdr_memory_reader in(answer.bytes);
      if (decode && !decode(in)) error_.status = RPC_CANTDECODERES;
    }
    return error_.status;
  }
  const rpc_err_t &last_error() const override { return error_; }
  const sockaddr_storage &peer() const override { return error_.peer; }
  int socket() const override { return -1; }
  void set_timeout(std::chrono::microseconds timeout) override { timeout_ = timeout; }
  void set_no_timeout() override {}
  std::chrono::microseconds timeout() const override { return timeout_; }
  void close_on_destroy(bool) override {}
  bool control(unsigned, void *) override { return false; }
  void set_error(clnt_stat status, int) override { error_.status = status; }
  bool set_encrypted() override { return encryptable; }

  bool encryptable = true;

 private:
  answer_fn answer_;
  int *alive_;
  rpc_err_t error_;
  std::chrono::microseconds timeout_{0};
};

// What came in: "connect HOST", "NUMBER args" with the arguments as their row shows them, "sleep
// N".
class fake_server final : public mif_env_t {
 public:
  fake_server() {
    mif_set_env(this);
    mif_reset();
    mif_set_noretry(true);
    mif_set_server("server");
    log.clear();
  }
  ~fake_server() override {
    mif_reset();
    mif_set_cache_limit(0);
    mif_get().mif_clidmap_cache.clear();
    mif_set_clientid_names(true, false);
    mif_set_env(nullptr);
  }

  errobj_t *connect(std::string_view server, std::unique_ptr<CLIENT> &client,
                    kstr_target &target) override {
    log.push_back("connect " + std::string(server.data() == nullptr ? "-" : server));
    if (!refusals.empty()) {
      errobj_t *error = err_dup(&refusals.front().error);
      if (refusals.front().known) target.host = server;
      refusals.pop_front();
      return error;
    }
    target.host = server;
    client = std::make_unique<fake_client>(
        [this](std::uint32_t procedure, const std::string &args) { return take(procedure, args); },
        &connections);
    return nullptr;
  }
  std::int64_t now() override { return time; }
  void sleep_ms(std::uint32_t milliseconds) override {
    log.push_back("sleep " + std::to_string(milliseconds));
    time += milliseconds / 1000;
  }
  bool exiting() override { return ends; }
  std::string local_host() override { return "here"; }

  // Answers a procedure other than the null one; the default knows none.
  std::function<fake_answer(std::uint32_t procedure, const std::string &args)> answer =
      [](std::uint32_t, const std::string &) {
        return fake_answer{RPC_PROCUNAVAIL, {}};
      };
  std::deque<clnt_stat> pings;  // what the next pings meet; then success
  struct refusal_t {
    errobj_t error;
    bool known;  // the host was named; connecting to it failed
  };
  std::deque<refusal_t> refusals;  // what the next connects meet
  std::vector<std::string> log;
  int connections = 0;
  std::int64_t time = 1000;
  bool ends = false;

  // How many calls of a procedure came in.
  std::size_t calls(mmdb_proc procedure) const {
    std::string start = std::to_string(procedure) + ' ';
    std::size_t count = 0;
    for (const std::string &line : log) count += line.starts_with(start);
    return count;
  }

 private:
  fake_answer take(std::uint32_t procedure, const std::string &args) {
    if (procedure == MMDB_NULL) {
      log.emplace_back("ping");
      clnt_stat status = pings.empty() ? RPC_SUCCESS : pings.front();
      if (!pings.empty()) pings.pop_front();
      return {status, {}};
    }
    std::string text;
    xdr_memory_reader in(args);
    const mmdb_proc_t *row = mmdb_find_proc(procedure);
    if (row == nullptr || !mmdb_walk_args(*row, in, &text)) text = "damaged";
    log.push_back(std::to_string(procedure) + ' ' + text);
    return answer(procedure, args);
  }
};

// A save set with what the tests tell apart.
inline ss_t sample_ss(std::string_view client, std::string_view name, std::int64_t savetime,
                      std::uint32_t id) {
  ss_t ss;
  ss.ssid = ksui_from_number(id);
  ss.ssid.set_word(0, KSUI_SAVESET);
  ss.client = client;
  ss.name = name;
  ss.savetime = savetime;
  return ss;
}

inline std::string ss_bytes(std::vector<ss_t> records, int more = -1) {
  ssr_reply reply;
  reply.status = MMDB_OK;
  for (ss_t &record : records) reply.list.rows.push_back(&record);
  reply.ssr_more = more;
  return more < 0 ? encoded(static_cast<const ss_reply &>(reply)) : encoded(reply);
}

inline std::string error_bytes(std::int32_t code, std::string_view text) {
  ss_reply reply;
  reply.status = 3;
  errobj_t error;
  error.code = code;
  error.text = text;
  reply.error = &error;
  return encoded(reply);
}

}  // namespace qvr
