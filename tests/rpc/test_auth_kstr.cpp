// The AUTH_KSTR handle, the blob it carries, the choice of a flavour and the steps down from it.
#include <gtest/gtest.h>

#include <cerrno>
#include <cstring>

#include "app_identity.h"
#include "auth_kstr.h"
#include "clnt_error.h"
#include "kstr_auth.h"
#include "kstr_blob.h"
#include "kstr_login.h"
#include "rpc_state.h"
#include "script_server.h"

namespace qvr {
namespace {

using namespace std::chrono_literals;

class turned_clock : public kstr_clock {
 public:
  turned_clock() { set_kstr_clock(this); }
  ~turned_clock() override { set_kstr_clock(nullptr); }
  void sleep(std::chrono::seconds) const override {}
  std::int64_t now() const override { return at; }
  std::int64_t at = 1'000'000;
};

void says_nothing(served_connection &, const served_call &) {}

std::string sealed_blob(std::string_view server) {
  std::string blob = payload_of(16) + counted(server) + payload_of(30, 5);
  kstr_blob_seal(blob);
  return blob;
}

TEST(kstr_blob, decoding) {
  std::string blob = sealed_blob("vault"), hidden = blob;
  kstr_blob_mask(hidden, REELSCAN_PROCESS_KEY);
  for (std::size_t bit = 0; bit < hidden.size() * 8; bit++) {
    std::string wrong = hidden;
    wrong[bit / 8] = static_cast<char>(wrong[bit / 8] ^ (1 << bit % 8));
    errobj_t *error = kstr_blob_decode(wrong, REELSCAN_PROCESS_KEY);
    ASSERT_NE(error, nullptr) << bit;
    EXPECT_EQ(error->message.id, 85100);
    EXPECT_EQ(error->code, 25007);
  }
  EXPECT_EQ(kstr_blob_decode(hidden, REELSCAN_PROCESS_KEY), nullptr);
  EXPECT_EQ(hidden, blob);
  EXPECT_EQ(kstr_blob_server(blob), "vault");
  blob.replace(12, 4, 4, '\0');
  blob.back() = 'x';
  EXPECT_EQ(kstr_blob_check(blob), nullptr) << "an old server's blob is not tested";
  EXPECT_NE(kstr_blob_check(blob.substr(0, 15)), nullptr);
  EXPECT_EQ(kstr_blob_server(blob.substr(0, 16)), "");
  EXPECT_EQ(kstr_blob_server(payload_of(16) + word(256) + std::string(256, 'x')), "");
}

TEST(auth_kstr_handle, short_credentials) {
  struct row {
    int line;
    std::uint32_t flavor;
    std::string verifier;
    bool valid;
    bool uses_short;
    bool expires;
  };
  const row rows[] = {
      {__LINE__, AUTH_NONE, "", true, false, false},
      {__LINE__, AUTH_KSTR, word(0) + counted("b"), true, false, false},
      {__LINE__, AUTH_KSTR, word(5), true, false, false},
      {__LINE__, AUTH_KSTR, word(1) + word(77), true, true, true},
      {__LINE__, AUTH_KSTR, word(4) + word(77), true, true, false},
      {__LINE__, AUTH_KSTR, word(2) + word(0), true, false, false},
      {__LINE__, AUTH_KSTR, word(6), false, false, false},
      {__LINE__, AUTH_KSTR, word(1), false, false, false},
      {__LINE__, AUTH_KSTR, "", false, false, false},
  };
  script_server server(says_nothing);
  auto client = open_tcp(server);
  ASSERT_TRUE(client);
  const std::string blob = sealed_blob("vault");
  const std::string full = word(0) + counted(blob);
  for (const row &r : rows) {
    SCOPED_TRACE(r.line);
    turned_clock clock;
    auto auth = authkstr_create(*client, "vault", &blob);
    ASSERT_TRUE(auth);
    auto body = [&] {
      xdr_memory_writer out;
      EXPECT_TRUE(auth->marshal(out, {}));
      xdr_memory_reader in(out.bytes());
      opaque_auth cred;
      EXPECT_TRUE(xdr_get_opaque_auth(in, cred));
      EXPECT_EQ(cred.flavor, AUTH_KSTR);
      return cred.body;
    };
    EXPECT_EQ(body(), full);
    EXPECT_EQ(auth->validate({r.flavor, r.verifier}, 1), r.valid);
    EXPECT_EQ(body(), r.uses_short ? r.verifier : full) << "the verifier's body as it stands";
    EXPECT_FALSE(auth->should_refresh(false));
    clock.at += 2999;
    EXPECT_FALSE(auth->should_refresh(false));
    clock.at += 1;
    EXPECT_EQ(auth->should_refresh(false), r.expires);
    EXPECT_FALSE(auth->should_refresh(true));
    EXPECT_EQ(auth->refresh(), r.uses_short);
    EXPECT_EQ(body(), full);
    // Held already: another short form does not replace it; a lost one is dropped.
    EXPECT_TRUE(auth->validate({AUTH_KSTR, word(1) + word(1)}, 1));
    EXPECT_TRUE(auth->validate({AUTH_KSTR, word(1) + word(2)}, 1));
    EXPECT_EQ(body(), word(1) + word(1));
    EXPECT_TRUE(auth->validate({AUTH_KSTR, word(2) + word(0)}, 1));
    EXPECT_EQ(body(), full);
  }
}

TEST(auth_kstr_handle, blobs_from_the_callback) {
  script_server server(says_nothing);
  auto client = open_tcp(server);
  ASSERT_TRUE(client);
  rpc_thread_state_t &thread = rpc_thread_state();
  thread.fetch_blob = nullptr;
  thread.server_name = nullptr;
  EXPECT_FALSE(authkstr_create(*client, "vault", nullptr));
  EXPECT_EQ(clnt_create_err().status, RPC_SYSTEMERROR);
  EXPECT_EQ(clnt_create_err().error.error, EINVAL);
  std::string nameless = payload_of(16);
  EXPECT_FALSE(authkstr_create(*client, "", &nameless));
  int fetched = 0;
  bool fail = false;
  thread.fetch_blob = [&](const std::string &server_name, std::string &blob) -> errobj_t * {
    fetched++;
    EXPECT_EQ(server_name, "vault");
    EXPECT_EQ(blob.empty(), fetched == 1) << "what is there is renewed";
    blob = sealed_blob("vault") + word(static_cast<std::uint32_t>(fetched));
    return fail ? err_from_table(2, 5) : nullptr;
  };
  thread.server_name = [] { return std::string("vault"); };
  auto auth = authkstr_create(*client, "", nullptr);
  ASSERT_TRUE(auth);
  EXPECT_EQ(fetched, 1);
  ASSERT_TRUE(auth->validate({AUTH_KSTR, word(4) + word(1)}, 1));
  fail = true;
  EXPECT_FALSE(auth->refresh());
  fail = false;
  EXPECT_TRUE(auth->refresh());
  EXPECT_EQ(fetched, 3);
  thread.fetch_blob = nullptr;
  thread.server_name = nullptr;
}

// The security layer's stand-in: binds or fails as told.
struct gss_stand_in {
  static inline clnt_stat status = RPC_SUCCESS;
  static inline int why = 0;
  static inline int tries = 0;
  class handle : public AUTH {
   public:
    std::uint32_t flavor() const override { return RPCSEC_GSS; }
    auth_kind kind() const override { return AUTH_KIND_GSS; }
    bool marshal(XDR &xdr, const auth_call &) override {
      return xdr.put_u32(RPCSEC_GSS) && xdr.put_u32(0) && xdr.put_u32(0) && xdr.put_u32(0);
    }
    bool validate(const opaque_auth &, std::uint32_t) override { return true; }
    bool refresh() override { return false; }
  };
  static std::unique_ptr<AUTH> bind(CLIENT &, std::string_view, gss_credential_ptr, bool) {
    tries++;
    if (status == RPC_SUCCESS) return std::make_unique<handle>();
    set_create_err(status, why);
    return nullptr;
  }
  static errobj_t *acquire(const gss_request &, gss_credential_ptr &) { return nullptr; }
  gss_hooks_t hooks{acquire, bind};
  gss_stand_in(clnt_stat s, int w) {
    status = s;
    why = w;
    tries = 0;
    set_gss_hooks(&hooks);
  }
  ~gss_stand_in() { set_gss_hooks(nullptr); }
};

TEST(bind_auth, order_of_preference) {
  enum { NO_LIST, EMPTY, KSTR, GSS, GSS_KSTR };
  struct row {
    int line;
    std::uint32_t mask;
    int list;
    bool encrypted;
    clnt_stat gss;
    int gss_why;
    int kind;  // 0: not bound
    clnt_stat status;
    int why;
  };
  const clnt_stat good = RPC_SUCCESS, bad = RPC_AUTHERROR;
  const row rows[] = {
      {__LINE__, 31, NO_LIST, false, good, 0, 4, good, 0},
      {__LINE__, 31, NO_LIST, false, bad, 7, 2, good, 0},  // no callback: no AUTH_KSTR
      {__LINE__, 31, NO_LIST, false, bad, 13, 0, bad, 13},
      {__LINE__, 31, NO_LIST, false, RPC_TIMEDOUT, 0, 0, RPC_TIMEDOUT, 0},
      {__LINE__, 31, NO_LIST, false, RPC_CANTRECV, 0, 2, good, 0},
      {__LINE__, 15, NO_LIST, false, good, 0, 2, good, 0},
      {__LINE__, 1, NO_LIST, false, good, 0, 1, good, 0},
      {__LINE__, 8, NO_LIST, false, good, 0, 0, bad, 5},
      {__LINE__, 15, EMPTY, false, good, 0, 2, good, 0},
      {__LINE__, 31, GSS_KSTR, false, good, 0, 4, good, 0},
      {__LINE__, 31, GSS_KSTR, false, bad, 7, 3, good, 0},
      {__LINE__, 31, GSS_KSTR, false, bad, 13, 0, bad, 13},
      {__LINE__, 15, GSS_KSTR, false, good, 0, 3, good, 0},
      {__LINE__, 27, KSTR, false, good, 0, 2, good, 0},
      {__LINE__, 31, GSS, true, good, 0, 4, good, 0},
      {__LINE__, 31, GSS, true, bad, 7, 0, bad, 7},
      {__LINE__, 15, GSS_KSTR, true, good, 0, 0, bad, 5},
      {__LINE__, 31, KSTR, true, good, 0, 0, bad, 5},
  };
  script_server server(says_nothing);
  const std::string blob = sealed_blob("vault");
  for (const row &r : rows) {
    SCOPED_TRACE(r.line);
    gss_stand_in gss(r.gss, r.gss_why);
    auto client = open_tcp(server);
    ASSERT_TRUE(client);
    client->set_auth_mask(r.mask);
    client->set_reply_seen(true);
    kstr_cred_list list;
    if (r.list == GSS || r.list == GSS_KSTR) list.push_back({AUTH_KIND_GSS, {}, nullptr});
    if (r.list == KSTR || r.list == GSS_KSTR) list.push_back({AUTH_KIND_KSTR, blob, nullptr});
    AUTH *auth =
        clnt_bind_auth(*client, "vault", r.list == NO_LIST ? nullptr : &list, "vault", r.encrypted);
    EXPECT_EQ(auth != nullptr ? auth->kind() : 0, r.kind);
    EXPECT_EQ(auth, client->auth.get());
    if (r.kind != 0) continue;
    EXPECT_EQ(clnt_create_err().status, r.status);
    EXPECT_EQ(clnt_create_err().error.why, r.status == bad ? r.why : 0);
  }
  EXPECT_TRUE(server.calls().empty()) << "binding sends nothing of its own";
}

// A server that rejects flavours: the handle steps down, once it has seen a reply no more.
TEST(fallback, during_a_call) {
  // The flavours by letter.
  auto number = [](char letter) {
    return letter == 'G' ? RPCSEC_GSS : letter == 'K' ? AUTH_KSTR : letter == 'U' ? AUTH_UNIX : 0u;
  };
  struct row {
    int line;
    char first;  // the flavour that is bound
    std::uint32_t mask;
    const char *rejected;
    std::uint32_t why;
    bool seen, encrypted;
    std::string tried;
    clnt_stat status;
  };
  const row rows[] = {
      {__LINE__, 'K', 31, "K", 2, false, false, "KU", RPC_SUCCESS},
      {__LINE__, 'K', 31, "KU", 2, false, false, "KUN", RPC_SUCCESS},
      {__LINE__, 'K', 5, "K", 2, false, false, "KN", RPC_SUCCESS},
      {__LINE__, 'K', 4, "K", 2, false, false, "K", RPC_AUTHERROR},
      {__LINE__, 'K', 31, "K", 2, true, false, "K", RPC_AUTHERROR},
      {__LINE__, 'K', 31, "K", 5, false, false, "K", RPC_AUTHERROR},
      {__LINE__, 'K', 31, "K", 2, false, true, "K", RPC_AUTHERROR},
      {__LINE__, 'U', 31, "UN", 2, false, false, "UN", RPC_AUTHERROR},
      {__LINE__, 'G', 31, "G", 2, false, false, "GU", RPC_SUCCESS},
  };
  const std::string blob = sealed_blob("vault");
  for (const row &r : rows) {
    SCOPED_TRACE(r.line);
    std::string tried;  // the server thread's until the call is over
    script_server server([&](served_connection &to, const served_call &call) {
      for (char letter : std::string("GKUN")) {
        if (number(letter) == call.flavor) tried += letter;
      }
      bool no = std::strchr(r.rejected, tried.back()) != nullptr;
      to.send(record(no ? reply_denied(call.xid, r.why) : reply_head(call.xid)));
    });
    gss_stand_in gss(RPC_SUCCESS, 0);
    auto client = open_tcp(server);
    ASSERT_TRUE(client);
    client->set_auth_mask(r.first == 'U' ? 2 : r.first == 'K' ? 4 : 16);
    kstr_cred_list list = {{AUTH_KIND_GSS, {}, nullptr}, {AUTH_KIND_KSTR, blob, nullptr}};
    ASSERT_TRUE(clnt_bind_auth(*client, "vault", &list, "vault", false));
    client->set_auth_mask(r.mask);
    client->set_reply_seen(r.seen);
    if (r.encrypted) client->set_encrypted();
    EXPECT_EQ(client->call(1, {}, {}, 5s), r.status);
    EXPECT_EQ(tried, r.tried);
  }
}

TEST(login, digest_answers_the_challenge) {
  // SHA-1 of "12345678" and SHA-1 of "secret", worked out by another program.
  const std::string response = "ff8a49f751a7cbc8b82781c3fee30d8e5a469aa0";
  script_server server([](served_connection &to, const served_call &call) {
    to.send(record(reply_head(call.xid) + counted("12345678")));
  });
  auto client = open_tcp(server);
  ASSERT_TRUE(client);
  ASSERT_EQ(kstr_login(*client, "ann", "secret", "corp"), nullptr);
  EXPECT_EQ(client->call(
                1, {}, [](XDR &) { return true; }, 5s),
            RPC_SUCCESS);
  auto calls = server.calls();
  ASSERT_EQ(calls.size(), 2u);
  EXPECT_EQ(calls[0].procedure, 0u);
  EXPECT_EQ(calls[0].credential, word(5));
  EXPECT_EQ(calls[1].credential, word(3) + counted("ann") + counted(response) + counted("corp"));
}

}  // namespace
}  // namespace qvr
