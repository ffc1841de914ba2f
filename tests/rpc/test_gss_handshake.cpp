// RPCSEC_GSS on a client handle, against a server that does as it is told.
#include <gtest/gtest.h>

#include "auth_gss.h"
#include "clnt_create.h"
#include "clnt_error.h"
#include "gss_fixture.h"
#include "kstr_auth.h"
#include "script_server.h"

namespace qvr {
namespace {

using std::chrono::seconds;

// An acceptor behind a script server. What it answers may be changed on its way out.
struct gss_server {
  gss_test_acceptor acceptor;
  gss_ctx context;
  std::function<void(gss_init_result &)> change;
  std::function<bool(served_connection &, const served_call &)> instead;
  std::vector<gss_call_cred> creds;
  std::vector<gss_init_args> inits;
  std::string app_token;
  script_server server;

  gss_server()
      : server([this](served_connection &c, const served_call &call) { answer(c, call); }) {
    acceptor.sessions[7] = gss_test_record(7);
  }
  void answer(served_connection &connection, const served_call &call) {
    gss_call_cred cred;
    xdr_memory_reader body(call.credential), in(call.arguments);
    if (call.flavor != RPCSEC_GSS || !xdr_get_gss_cred(body, cred)) return;
    creds.push_back(cred);
    if (instead && instead(connection, call)) return;
    if (cred.proc == RPCSEC_GSS_DATA) {
      std::string mic;
      gss_get_mic(context, call.xid, word(call.xid), mic);
      connection.send(record(reply_head(call.xid, RPCSEC_GSS, mic) + word(5)));
      return;
    }
    gss_init_args args;
    if (!xdr_get_gss_init_args(in, args)) return;
    inits.push_back(args);
    if (cred.proc == RPCSEC_GSS_APP_TOKEN) {
      gss_buffer plain;
      if (gss_unwrap(context, args.token, plain) == nullptr) app_token = plain.view();
      connection.send(record(reply_head(call.xid)));
      return;
    }
    gss_init_result result;
    result.handle = "ctx";
    std::uint32_t flags = 0;
    gss_accept_sec_context(acceptor, context, args.token, result.token, result.major, flags);
    if ((flags & GSS_FLAG_NO_REPLY) != 0) return;
    if (change) change(result);
    xdr_memory_writer out;
    xdr_put_gss_init_result(out, result);
    connection.send(record(reply_head(call.xid) + out.bytes()));
  }
  std::unique_ptr<CLIENT> client() {
    int socket = -1;
    return clnt_tcp_create(server.address, 390107, 6, socket, 0, 0);
  }
};

std::shared_ptr<gss_cred> cred_of(std::uint64_t session, const char *app_token = nullptr) {
  auto cred = std::make_shared<gss_cred>(gss_test_cred(session));
  cred->has_app_token = app_token != nullptr;
  if (app_token != nullptr) cred->app_token.bytes.assign(app_token);
  return cred;
}

clnt_stat ask(CLIENT &client, std::uint32_t &value) {
  return client.call(
      50, {}, [&](XDR &xdr) { return xdr.get_u32(value); }, seconds(5));
}

TEST(gss_handshake, a_context_and_the_calls_under_it) {
  gss_server s;
  auto client = s.client();
  client->set_timeout(seconds(9));
  auto earlier = client->auth.get();
  std::unique_ptr<AUTH> auth = authgss_create(*client, "vault", cred_of(7, "blob"), false);
  ASSERT_NE(auth, nullptr) << clnt_create_error_text();
  EXPECT_EQ(client->auth.get(), earlier);
  EXPECT_EQ(client->timeout(), seconds(9));
  EXPECT_EQ(client->wait_mode(), CLNT_WAIT_SET);
  EXPECT_FALSE(client->reply_seen());
  client->auth = std::move(auth);
  std::uint32_t value = 0;
  EXPECT_EQ(ask(*client, value), RPC_SUCCESS);
  EXPECT_EQ(value, 5u);

  ASSERT_EQ(s.creds.size(), 3u);
  EXPECT_EQ(s.creds[0].handle, "");
  EXPECT_EQ(s.creds[0].proc, RPCSEC_GSS_INIT);
  EXPECT_EQ(s.creds[1].proc, RPCSEC_GSS_APP_TOKEN);
  EXPECT_EQ(s.creds[2].proc, RPCSEC_GSS_DATA);
  auto calls = s.server.calls();
  for (std::size_t i = 0; i < 3; i++) {
    EXPECT_EQ(s.creds[i].seq, calls[i].xid);
    EXPECT_EQ(s.creds[i].service, 1u);
    EXPECT_EQ(s.creds[i].handle, i > 0 ? "ctx" : "");
  }
  EXPECT_TRUE(s.inits[0].app_token_follows);
  EXPECT_FALSE(s.inits[0].channel_wanted);
  EXPECT_EQ(s.app_token, word(2) + counted("blob") + word(0));

  std::uint32_t tag = 0;
  std::shared_ptr<gss_ctx> context;
  EXPECT_TRUE(client->auth->control(AUTHGSS_GET_TAG, &tag));
  EXPECT_EQ(tag, 4u);
  EXPECT_TRUE(client->auth->control(AUTHGSS_GET_CONTEXT, &context));
  EXPECT_FALSE(client->auth->should_refresh(false));
  EXPECT_FALSE(client->auth->refresh());
  EXPECT_FALSE(client->auth->control(9, &tag));
  client->auth.reset();
  EXPECT_TRUE(context->key().empty()) << "the context goes with the handle";
}

TEST(gss_handshake, failures_and_what_they_are_called) {
  struct {
    int line;
    std::uint64_t session;
    void (*change)(gss_init_result &result);
    std::uint32_t deny;
    clnt_stat status;
    int why;
  } rows[] = {
      {__LINE__, 7, [](gss_init_result &r) { r.handle.clear(); }, 0, RPC_AUTHERROR, 2},
      {__LINE__, 7, [](gss_init_result &r) { r.major = 2; }, 0, RPC_AUTHERROR, 2},
      {__LINE__, 7, [](gss_init_result &r) { r.major = GSS_FAILURE; }, 0, RPC_AUTHERROR, 2},
      {__LINE__, 7, [](gss_init_result &r) { r.token[0] ^= 1; }, 0, RPC_AUTHERROR, 14},
      {__LINE__, 7, [](gss_init_result &r) { r.token.clear(); }, 0, RPC_AUTHERROR, 7},
      {__LINE__, 7, [](gss_init_result &r) { r.major = 1; }, 0, RPC_AUTHERROR, 14},
      {__LINE__, 8, nullptr, 0, RPC_AUTHERROR, 2},
      {__LINE__, 7, nullptr, 13, RPC_AUTHERROR, 13},
      {__LINE__, 7, nullptr, 2, RPC_AUTHERROR, 2},
      {__LINE__, 7, [](gss_init_result &r) { r.token.assign(GSS_BYTES_MAX, 'x'); }, 0,
       RPC_AUTHERROR, 14},
  };
  for (const auto &row : rows) {
    SCOPED_TRACE(row.line);
    gss_server s;
    if (row.change != nullptr) s.change = row.change;
    if (row.deny != 0) {
      s.instead = [&row](served_connection &c, const served_call &call) {
        c.send(record(reply_denied(call.xid, row.deny)));
        return true;
      };
    }
    auto client = s.client();
    EXPECT_EQ(authgss_create(*client, "vault", cred_of(row.session), false), nullptr);
    EXPECT_EQ(clnt_create_err().status, row.status);
    EXPECT_EQ(clnt_create_err().error.why, row.why);
    EXPECT_EQ(client->auth->kind(), AUTH_KIND_NONE);
    EXPECT_EQ(s.server.calls().size(), 1u) << "no fallback inside a handshake";
  }
}

TEST(gss_handshake, replies_are_believed_by_their_verifier) {
  struct {
    int line;
    std::string (*verifier)(gss_ctx &context, std::uint32_t xid);
    std::uint32_t flavor;
    clnt_stat status;
  } rows[] = {
      {__LINE__,
       [](gss_ctx &c, std::uint32_t xid) {
         std::string mic;
         gss_get_mic(c, xid, word(xid), mic);
         return mic;
       },
       RPCSEC_GSS, RPC_SUCCESS},
      {__LINE__,
       [](gss_ctx &c, std::uint32_t xid) {
         std::string mic;
         gss_get_mic(c, xid, word(xid), mic);
         return mic;
       },
       AUTH_NONE, RPC_AUTHERROR},
      {__LINE__,
       [](gss_ctx &c, std::uint32_t xid) {
         std::string mic;
         gss_get_mic(c, xid + 1, word(xid), mic);
         return mic;
       },
       RPCSEC_GSS, RPC_AUTHERROR},
      {__LINE__, [](gss_ctx &, std::uint32_t) { return std::string(); }, RPCSEC_GSS, RPC_AUTHERROR},
      {__LINE__, [](gss_ctx &, std::uint32_t) { return std::string(20, 'x'); }, RPCSEC_GSS,
       RPC_AUTHERROR},
  };
  for (const auto &row : rows) {
    SCOPED_TRACE(row.line);
    gss_server s;
    auto client = s.client();
    client->auth = authgss_create(*client, "vault", cred_of(7), false);
    ASSERT_NE(client->auth, nullptr);
    s.instead = [&](served_connection &c, const served_call &call) {
      std::string verifier = row.verifier(s.context, call.xid);
      c.send(record(reply_head(call.xid, row.flavor, verifier) + word(5)));
      return true;
    };
    std::uint32_t value = 0;
    EXPECT_EQ(ask(*client, value), row.status);
    EXPECT_EQ(client->last_error().why, row.status == RPC_SUCCESS ? 0 : AUTH_INVALIDRESP);
  }
}

// The signed part ends where its 2048 bytes do.
TEST(gss_handshake, a_handle_may_be_too_long_to_be_used) {
  for (std::size_t size : {1992u, 1993u, 32744u}) {
    SCOPED_TRACE(size);
    gss_server s;
    s.change = [&](gss_init_result &r) { r.handle.assign(size, 'h'); };
    auto client = s.client();
    client->auth = authgss_create(*client, "vault", cred_of(7), false);
    ASSERT_NE(client->auth, nullptr);
    std::uint32_t value = 0;
    testing::internal::CaptureStderr();
    clnt_stat status = ask(*client, value);
    std::string told = testing::internal::GetCapturedStderr();
    EXPECT_EQ(status, size == 1992 ? RPC_SUCCESS : RPC_CANTENCODEARGS);
    EXPECT_EQ(told.find("Cannot encode RPCSEC_GSS credential") != told.npos, size != 1992);
  }
}

}  // namespace
}  // namespace qvr
