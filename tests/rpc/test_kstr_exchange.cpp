// The exchange with auth servers: retries by a clock that the test turns, redirects, renewals.
#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>

#include "app_identity.h"
#include "auth_methods.h"
#include "clnt_error.h"
#include "fake_resolver.h"
#include "kstr_auth.h"
#include "kstr_blob.h"
#include "kstr_exchange.h"
#include "kstr_login.h"
#include "kstr_state.h"
#include "kstr_token.h"
#include "pmap_cache.h"
#include "script_server.h"
#include "temp_dir.h"
#include "xdr_shared.h"

namespace qvr {
namespace {

TEST(kstr_retry, rule) {
  using enum kstr_verdict;
  struct row {
    int line;
    std::int32_t code;
    bool passed_in;
    int round;
    kstr_verdict verdict;
  };
  const row rows[] = {
      {__LINE__, 23005, false, 0, new_connection},  {__LINE__, 23005, false, 2, new_connection},
      {__LINE__, 23005, false, 3, give_up},         {__LINE__, 24003, false, 0, new_connection},
      {__LINE__, -13, false, 0, new_connection},    {__LINE__, 25007, false, 0, give_up},
      {__LINE__, 25010, false, 0, give_up},         {__LINE__, 35001, false, 0, give_up},
      {__LINE__, 13110, false, 1, new_connection},  {__LINE__, 22007, false, 0, give_up},
      {__LINE__, 23005, true, -1, same_connection}, {__LINE__, 23005, true, 2, same_connection},
      {__LINE__, 23005, true, 3, give_up},          {__LINE__, -13, true, -1, same_connection},
      {__LINE__, 24003, true, -1, fall_back},       {__LINE__, 25010, true, -1, fall_back},
      {__LINE__, 20010, true, 0, fall_back},        {__LINE__, 35001, true, 0, fall_back},
      {__LINE__, 30001, true, 0, fall_back},        {__LINE__, 35002, true, 0, give_up},
      {__LINE__, 25007, true, 0, give_up},          {__LINE__, 35001, true, 3, give_up},
      {__LINE__, 55001, true, 0, give_up},
  };
  for (const row &r : rows) {
    SCOPED_TRACE(r.line);
    EXPECT_EQ(kstr_judge(r.code, r.passed_in, r.round), r.verdict);
  }
}

class kstr_server_of : public testing::Test, public kstr_clock {
 protected:
  kstr_server_of() {
    resolver_.hosts["localhost"] = {"", {"127.0.0.1"}, 0};
    resolver_.hosts["other"] = {"", {"127.0.0.1"}, 0};
    set_kstr_clock(this);
    kstr_set_application(REELSCAN_APPLICATION, REELSCAN_PROCESS_KEY);
  }
  ~kstr_server_of() override {
    set_kstr_clock(nullptr);
    kstr_set_application(-1, {});
    kstr_thread() = {};
    pmap_cache_forget();
  }
  void sleep(std::chrono::seconds time) const override { slept_ += time; }
  std::int64_t now() const override { return 1'000'000; }

  // A new server that answers by the n-th function, and by the last from then on.
  using answer = std::function<std::string(const served_call &)>;
  void serve(std::vector<answer> answers) {
    server_.reset();
    pmap_cache_forget();
    slept_ = {};
    // Each connection has its own thread, and they take turns at the answers.
    server_ = std::make_unique<script_server>(
        [answers, n = std::make_shared<std::atomic<std::size_t>>(0)](served_connection &to,
                                                                     const served_call &call) {
          std::string bytes = answers[std::min((*n)++, answers.size() - 1)](call);
          to.send(bytes);
          to.closing = bytes.empty();
        });
    ASSERT_TRUE(server_->good);
    std::uint16_t port = ntohs(reinterpret_cast<sockaddr_in &>(server_->address).sin_port);
    for (std::uint32_t program : {KSTR_PROGRAM, 390109u, 390107u}) {
      pmap_cache_add({program, 1, IPPROTO_TCP, port});
    }
  }
  std::unique_ptr<CLIENT> open() { return open_tcp(*server_, KSTR_PROGRAM); }
  errobj_t *ask(CLIENT *client = nullptr) {
    return kstr_auth("127.0.0.1", client, "qvrmmdbd", {}, -1, {}, nullptr, AUTH_METHOD_ALL, blob_,
                     target_);
  }

  static answer result(const kstr_result &what) {
    return [what](const served_call &call) {
      xdr_memory_writer out;
      EXPECT_TRUE(xdr_put_kstr_result(out, what));
      return record(reply_head(call.xid) + out.bytes());
    };
  }
  static answer refused(std::int32_t code) {
    return [code](const served_call &call) {
      return record(reply_head(call.xid) + word(2) + word(static_cast<std::uint32_t>(code)) +
                    counted("told to refuse"));
    };
  }
  static answer granted() {
    kstr_result what;
    what.credential = clear_blob();
    kstr_blob_mask(*what.credential, REELSCAN_PROCESS_KEY);
    what.target = kstr_target{"vault", 390107, 6, "tcp", {}};
    return result(what);
  }
  static answer redirect(const std::string &host, std::uint32_t program = KSTR_PROGRAM) {
    kstr_result what;
    what.tag = 3;
    what.target = kstr_target{host, program, 1, "tcp", {}};
    return result(what);
  }
  static std::string clear_blob() {
    std::string blob = payload_of(16) + counted("other") + payload_of(20, 9);
    kstr_blob_seal(blob);
    return blob;
  }
  static std::string nothing(const served_call &) { return {}; }

  test::fake_resolver resolver_;
  mutable std::chrono::seconds slept_{0};
  std::unique_ptr<script_server> server_;
  std::string blob_;
  kstr_target target_;
};

TEST_F(kstr_server_of, a_granted_credential) {
  serve({granted()});
  errobj_t *error = ask();
  ASSERT_EQ(error, nullptr) << error->text;
  EXPECT_EQ(blob_, clear_blob());
  EXPECT_EQ(target_.host, "vault");
  EXPECT_EQ(target_.version, 6u);
  auto calls = server_->calls();
  ASSERT_EQ(calls.size(), 1u);
  EXPECT_EQ(calls[0].procedure, 124u);
  EXPECT_EQ(calls[0].flavor, AUTH_UNIX) << "without a security layer, and never AUTH_KSTR";
  xdr_memory_reader in(calls[0].arguments);
  std::string service;
  bool present;
  std::vector<auth_identity> who;
  ASSERT_TRUE(in.get_counted(service) && in.get_bool(present) && xdr_get_identities(in, who));
  EXPECT_EQ(service, "qvrmmdbd");
  ASSERT_EQ(who.size(), 1u);
  EXPECT_EQ(who[0].application, 3u);
  EXPECT_EQ(*attrlist_first(who[0].attributes, "auth server"), "127.0.0.1");
  EXPECT_EQ(in.remaining(), 0u);
  // A program without a number is given none.
  kstr_set_application(-1, {});
  error = ask();
  ASSERT_NE(error, nullptr);
  EXPECT_TRUE(err_is(error->code, 2, 7));
  EXPECT_EQ(server_->calls().size(), 1u);
}

TEST_F(kstr_server_of, endings) {
  struct row {
    int line;
    std::vector<answer> answers;
    bool passed_in;
    std::int32_t id;  // of the error's message; -1: granted
    int code_class, number;
    int slept, calls, connections;
  };
  kstr_result null_grant, partial;
  partial.tag = 1;
  partial.error = err_create(0, 22007, "partly");
  partial.credential = clear_blob();
  kstr_blob_mask(*partial.credential, REELSCAN_PROCESS_KEY);
  kstr_result spoilt = partial;
  spoilt.tag = 0;
  spoilt.credential->back() = static_cast<char>(spoilt.credential->back() ^ 1);
  const answer later = refused(23005), never = refused(24003), moved = redirect("other");
  const row rows[] = {
      {__LINE__, {granted()}, true, -1, 0, 0, 0, 1, 1},
      {__LINE__, {result(partial)}, false, -1, 0, 0, 0, 1, 1},
      {__LINE__, {result(null_grant)}, false, 186652, 2, 7, 0, 1, 1},
      {__LINE__, {result(spoilt)}, false, 85100, 2, 7, 0, 1, 1},
      // Four rounds, three pauses.
      {__LINE__, {later}, false, 0, 2, 5, 30, 4, 4},
      {__LINE__, {later, never, granted()}, false, -1, 0, 0, 20, 3, 3},
      {__LINE__, {refused(25007)}, false, 0, 2, 7, 0, 1, 1},
      {__LINE__, {nothing}, false, 76677, 2, 4, 30, 4, 4},
      // Five rounds on the handle that was brought.
      {__LINE__, {later}, true, 0, 2, 5, 40, 5, 1},
      {__LINE__, {never, later, granted()}, true, -1, 0, 0, 10, 3, 3},
      {__LINE__, {refused(35001), granted()}, true, -1, 0, 0, 0, 2, 2},
      {__LINE__, {moved, granted()}, false, -1, 0, 0, 0, 2, 2},
      {__LINE__, {redirect("other", 390109), granted()}, true, -1, 0, 0, 0, 2, 2},
      // A redirect begins the rounds anew, five of them.
      {__LINE__, {later, later, later, moved, later}, false, 0, 2, 5, 70, 9, 9},
      {__LINE__, {moved}, false, 0, 2, 7, 0, 9, 9},
      {__LINE__, {redirect("nowhere.example")}, false, 165598, 2, 13, 0, 1, 1},
  };
  for (const row &r : rows) {
    SCOPED_TRACE(r.line);
    serve(r.answers);
    std::unique_ptr<CLIENT> client;
    if (r.passed_in) client = open();
    errobj_t *error = ask(client.get());
    ASSERT_EQ(error == nullptr, r.id == -1) << (error != nullptr ? error->text : "granted");
    if (error != nullptr) {
      EXPECT_TRUE(err_is(error->code, r.code_class, r.number)) << error->code << error->text;
      EXPECT_TRUE(r.id == 0 || error->message.id == r.id) << error->message.id;
    }
    EXPECT_EQ(slept_.count(), r.slept);
    EXPECT_EQ(static_cast<int>(server_->calls().size()), r.calls);
    EXPECT_EQ(server_->connections, r.connections);
    EXPECT_TRUE(!client || client->auth_mask() == 31u) << "the handle gets its mask back";
  }
}

TEST_F(kstr_server_of, masks_towards_the_auth_server) {
  struct row {
    int line;
    std::uint32_t mask;
    const char *methods;
    std::uint32_t flavor;  // 99: nothing is sent
  };
  const row rows[] = {
      {__LINE__, 31, "0.0.0.0/0,oldauth", AUTH_UNIX},
      {__LINE__, 1, "0.0.0.0/0,oldauth", AUTH_NONE},
      {__LINE__, 31, "0.0.0.0/0,qvrauth", AUTH_NONE},  // this host always may
      {__LINE__, 24, "0.0.0.0/0,qvrauth", 99},
  };
  for (const row &r : rows) {
    SCOPED_TRACE(r.line);
    serve({granted()});
    std::shared_ptr<const auth_methods> methods;
    ASSERT_EQ(auth_methods::parse({r.methods}, false, methods), nullptr);
    set_auth_methods(methods);
    errobj_t *error =
        kstr_auth("127.0.0.1", nullptr, "qvrd", {}, -1, {}, nullptr, r.mask, blob_, target_);
    set_auth_methods(nullptr);
    EXPECT_EQ(error == nullptr, r.flavor != 99);
    auto calls = server_->calls();
    ASSERT_EQ(calls.size(), r.flavor == 99 ? 0u : 1u);
    EXPECT_TRUE(calls.empty() || calls[0].flavor == r.flavor);
  }
}

TEST_F(kstr_server_of, renewing) {
  serve({granted()});
  std::string blob = clear_blob();
  ASSERT_EQ(kstr_reauth("", nullptr, blob), nullptr);
  auto calls = server_->calls();
  ASSERT_EQ(calls.size(), 1u);
  EXPECT_EQ(calls[0].procedure, 125u);
  EXPECT_EQ(calls[0].arguments, word(1) + counted(clear_blob()));
  EXPECT_EQ(blob, clear_blob());
  // A server that does not know the application names no fault of the credential's own server.
  serve({refused(32033), granted()});
  ASSERT_EQ(kstr_reauth("127.0.0.1", nullptr, blob), nullptr);
  EXPECT_EQ(server_->connections, 2);
  serve({refused(32033)});
  errobj_t *error = kstr_reauth("127.0.0.1", nullptr, blob);
  ASSERT_NE(error, nullptr);
  EXPECT_EQ(server_->connections, 2) << "once";
  serve({granted()});
  blob.clear();
  ASSERT_EQ(kstr_reauth("127.0.0.1", nullptr, blob), nullptr);
  EXPECT_EQ(server_->calls().at(0).procedure, 124u);
  EXPECT_EQ(server_->calls().at(0).arguments.substr(0, 12), counted("qvrstat"));
}

TEST_F(kstr_server_of, from_the_credential_to_the_target) {
  serve({granted()});
  kstr_cred_list list;
  ASSERT_EQ(kstr_auth_list("127.0.0.1", nullptr, "qvrd", {}, -1, {}, nullptr, AUTH_METHOD_ALL, list,
                           target_),
            nullptr);
  ASSERT_EQ(list.size(), 1u);
  EXPECT_EQ(list[0].kind, AUTH_KIND_KSTR);
  EXPECT_EQ(list[0].blob, clear_blob());
  std::unique_ptr<CLIENT> client;
  kstr_target target{"127.0.0.1", 390109, 1, "tcp", {}};
  ASSERT_EQ(clnt_connect_target(target, list, 0, 0, 0, client), nullptr);
  EXPECT_EQ(client->auth->kind(), AUTH_KIND_KSTR);
  EXPECT_TRUE(client->reply_seen());

  attrlist_set(target.attributes, "encrypt", "True");
  list.clear();
  errobj_t *error = clnt_connect_target(target, list, 0, 0, 0, client);
  ASSERT_NE(error, nullptr);
  EXPECT_EQ(error->message.id, 77571);
  EXPECT_FALSE(client);

  slept_ = {};
  target.host = "nowhere.example";
  error = clnt_connect_target(target, list, 0, 0, 3, client);
  ASSERT_NE(error, nullptr);
  EXPECT_EQ(error->message.id, 141936);
  EXPECT_TRUE(err_is(error->code, 2, 13));
  EXPECT_EQ(slept_.count(), 0) << "a name that does not resolve is not waited for";
}

TEST_F(kstr_server_of, challenges_of_the_auth_server) {
  struct row {
    int line;
    std::string answer;
    std::string password;
    std::string digest;  // in hex, worked out by another program; empty: an error
  };
  const row rows[] = {
      {__LINE__, word(0) + "12345678", "secret", "ff8a49f751a7cbc8b82781c3fee30d8e5a469aa0"},
      {__LINE__, word(1) + "12345678", "secret", "ff8a49f751a7cbc8b82781c3fee30d8e5a469aa0"},
      {__LINE__, word(0) + "12345678", "", "7c222fb2927d828af22f592134e8932480637c0d"},
      {__LINE__, word(2) + word(25007) + counted("no"), "secret", ""},
      {__LINE__, word(3) + "12345678", "secret", ""},
      {__LINE__, word(0) + "1234", "secret", ""},
  };
  for (const row &r : rows) {
    SCOPED_TRACE(r.line);
    serve({[&](const served_call &call) { return record(reply_head(call.xid) + r.answer); }});
    auto client = open();
    ASSERT_TRUE(client);
    kstr_digest digest;
    errobj_t *error = kstr_answer_challenge(*client, r.password, digest);
    ASSERT_EQ(error == nullptr, !r.digest.empty());
    EXPECT_EQ(server_->calls().at(0).procedure, 123u);
    if (error != nullptr) continue;
    std::string hex;
    for (std::uint8_t byte : digest) {
      for (int nibble : {byte >> 4, byte & 15}) hex += "0123456789abcdef"[nibble];
    }
    EXPECT_EQ(hex, r.digest);
  }
}

// What library start makes of a job's key or a user's token.
TEST_F(kstr_server_of, sessions) {
  struct row {
    int line;
    const char *key;    // of a job
    const char *token;  // the user's file
    bool answers;
    std::uint32_t procedure;  // 0: nobody is asked
    const char *attribute, *value;
  };
  const row rows[] = {
      {__LINE__, "k1", nullptr, true, 10, "session ticket", "t1"},
      {__LINE__, "k1", nullptr, false, 10, nullptr, nullptr},
      {__LINE__, nullptr, "stored", true, 12, "auth security token", "t1"},
      {__LINE__, nullptr, "stored", false, 12, "auth security token", "<invalid token>"},
      {__LINE__, nullptr, nullptr, true, 0, nullptr, nullptr},
  };
  const identity_source &me = system_identity();
  for (const row &r : rows) {
    SCOPED_TRACE(r.line);
    temp_dir tokens;
    setenv("QVR_TOKENS_DIR", tokens.path().c_str(), 1);
    if (r.key != nullptr) setenv("QVR session ticket key", r.key, 1);
    if (r.token != nullptr) {
      tokens.write(".qvrlogin." + me.user_name(me.effective_uid()), r.token);
    }
    serve({[&](const served_call &call) -> std::string {
      if (!r.answers) return {};
      xdr_memory_writer out;
      attrlist tickets;
      attrlist_set(tickets, "session ticket", "t1");
      if (call.procedure == 10) {
        EXPECT_TRUE(xdr_put_attrlist(out, tickets));
      } else {
        EXPECT_TRUE(out.put_counted("t1"));
      }
      return record(reply_head(call.xid) + out.bytes());
    }});
    kstr_session_start(false);
    unsetenv("QVR session ticket key");
    unsetenv("QVR_TOKENS_DIR");
    auto calls = server_->calls();
    ASSERT_EQ(calls.size(), r.procedure != 0 ? 1u : 0u);
    if (r.procedure != 0) {
      EXPECT_EQ(calls[0].procedure, r.procedure);
      EXPECT_EQ(calls[0].arguments, counted(r.key != nullptr ? r.key : r.token));
      EXPECT_NE(calls[0].flavor, AUTH_KSTR);
    }
    attrlist attributes = build_kstrauth_parms("qvrd", "vault", {}, 3, false).attributes;
    for (const char *name : {"session ticket", "auth security token"}) {
      const std::string *value = attrlist_first(attributes, name);
      bool wanted = r.attribute != nullptr && std::string_view(name) == r.attribute;
      ASSERT_EQ(value != nullptr, wanted) << name;
      EXPECT_TRUE(!wanted || *value == r.value);
    }
    kstr_set_session_tickets({});
    kstr_set_token({});
  }
}

}  // namespace
}  // namespace qvr
