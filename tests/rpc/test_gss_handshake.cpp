// RPCSEC_GSS on a client handle, in plain and on the channel, against a server that does as it is
// told.
#include <gtest/gtest.h>

#include "auth_gss.h"
#include "clnt_create.h"
#include "clnt_error.h"
#include "fake_resolver.h"
#include "gss_fixture.h"
#include "kstr_auth.h"
#include "script_server.h"

namespace qvr {
namespace {

using std::chrono::seconds;

// An acceptor behind a script server, one connection after the other. What it answers may be
// changed on its way out.
struct gss_server {
  gss_test_acceptor acceptor;
  gss_ctx context;
  bool on_channel = false;
  std::function<void(gss_init_result &)> change;
  std::function<bool(served_connection &, const served_call &)> instead;
  std::vector<gss_call_cred> creds;
  std::vector<gss_init_args> inits;
  std::vector<std::string> data;  // how its calls came: in what, with how long a verifier
  std::string app_token;
  script_server server;

  gss_server()
      : server([this](served_connection &c, const served_call &call) { answer(c, call); }) {
    acceptor.sessions[7] = gss_test_record(7);
  }
  std::string fragment_of(const std::string &bytes) {
    gss_buffer wrapped;
    if (!on_channel) return bytes;
    EXPECT_EQ(gss_wrap(context, bytes, wrapped), nullptr);
    return std::string(wrapped.view());
  }
  void turn(served_connection &connection, bool on) {
    on_channel = on;
    connection.open = nullptr;
    if (!on) return;
    connection.open = [this](std::string &fragment) {
      gss_buffer plain;
      EXPECT_EQ(gss_unwrap(context, fragment, plain), nullptr);
      fragment = plain.view();
    };
  }
  void answer(served_connection &connection, const served_call &call) {
    gss_call_cred cred;
    xdr_memory_reader body(call.credential), in(call.arguments);
    if (call.flavor != RPCSEC_GSS || !xdr_get_gss_cred(body, cred)) return;
    creds.push_back(cred);
    std::size_t verifier = call.raw.size() - call.arguments.size() - 36 - call.credential.size();
    if (cred.proc == RPCSEC_GSS_DATA) {
      data.push_back((on_channel ? "channel " : "plain ") + std::to_string(verifier - 4));
    }
    if (instead && instead(connection, call)) return;
    gss_init_args args;
    if (cred.proc == RPCSEC_GSS_DATA) {
      std::string mic;
      if (!on_channel) gss_get_mic(context, call.xid, word(call.xid), mic);
      std::string reply = reply_head(call.xid, RPCSEC_GSS, mic) + word(5);
      connection.send(record(fragment_of(reply)));
    } else if (cred.proc == RPCSEC_GSS_CHANNEL) {
      EXPECT_EQ(cred.seq, 0u);
      turn(connection, call.arguments == word(1));
    } else if (!xdr_get_gss_init_args(in, args)) {
      return;
    } else if (cred.proc == RPCSEC_GSS_APP_TOKEN) {
      EXPECT_EQ(verifier, 4 + 20u) << "the context is up: calls are signed";
      gss_buffer plain;
      if (gss_unwrap(context, args.token, plain) == nullptr) app_token = plain.view();
      connection.send(record(reply_head(call.xid)));
      if (args.channel_wanted) turn(connection, true);
    } else {
      begin(connection, call, args);
    }
  }
  void begin(served_connection &connection, const served_call &call, const gss_init_args &args) {
    inits.push_back(args);
    context.close();
    turn(connection, false);
    gss_init_result result;
    result.handle = "ctx";
    std::uint32_t flags = 0;
    gss_accept_sec_context(acceptor, context, args.token, result.token, result.major, flags);
    if ((flags & GSS_FLAG_NO_REPLY) != 0) return;
    if (change) change(result);
    xdr_memory_writer out;
    xdr_put_gss_init_result(out, result);
    connection.send(record(reply_head(call.xid) + out.bytes()));
    if (args.channel_wanted && !args.app_token_follows) turn(connection, true);
  }
  std::unique_ptr<CLIENT> client() {
    int socket = -1;
    return clnt_tcp_create(server.address, 390107, 6, socket, 0, 0);
  }
  // Bound; the server is another thread, so that a failure shows here.
  std::unique_ptr<CLIENT> bound(bool encrypted, const char *token = nullptr);
};

std::shared_ptr<gss_cred> cred_of(std::uint64_t session, const char *app_token = nullptr) {
  auto cred = std::make_shared<gss_cred>(gss_test_cred(session));
  cred->has_app_token = app_token != nullptr;
  if (app_token != nullptr) cred->app_token.bytes.assign(app_token);
  return cred;
}

std::unique_ptr<CLIENT> gss_server::bound(bool encrypted, const char *token) {
  auto made = client();
  made->auth = authgss_create(*made, "vault", cred_of(7, token), encrypted);
  EXPECT_NE(made->auth, nullptr) << clnt_create_error_text();
  return made;
}

// The status, and the value behind it when a decoder saw one.
std::string ask(CLIENT &client) {
  std::string seen;
  clnt_stat status = client.call(
      50, {},
      [&](XDR &xdr) {
        std::uint32_t value = 0;
        bool good = xdr.get_u32(value);
        seen = " " + std::to_string(value);
        return good;
      },
      seconds(5));
  return std::to_string(status) + "/" + std::to_string(client.last_error().why) + seen;
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
  EXPECT_EQ(ask(*client), "0/0 5");

  const std::uint32_t procs[] = {RPCSEC_GSS_INIT, RPCSEC_GSS_APP_TOKEN, RPCSEC_GSS_DATA};
  ASSERT_EQ(s.creds.size(), 3u);
  for (std::size_t i = 0; i < 3; i++) {
    EXPECT_EQ(s.creds[i].proc, procs[i]);
    EXPECT_EQ(s.creds[i].seq, s.server.calls()[i].xid);
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
  const std::string long_token(GSS_BYTES_MAX + 1, 't');
  const struct {
    int line;
    std::uint64_t session;
    void (*change)(gss_init_result &result);
    std::uint32_t deny;
    const char *app_token;
    int why;
    std::size_t calls = 1;  // no fallback inside a handshake
  } rows[] = {
      {__LINE__, 7, [](gss_init_result &r) { r.handle.clear(); }, 0, nullptr, 2},
      {__LINE__, 7, [](gss_init_result &r) { r.major = 2; }, 0, nullptr, 2},
      {__LINE__, 7, [](gss_init_result &r) { r.major = GSS_FAILURE; }, 0, nullptr, 2},
      {__LINE__, 7, [](gss_init_result &r) { r.token[0] ^= 1; }, 0, nullptr, 14},
      {__LINE__, 7, [](gss_init_result &r) { r.token.clear(); }, 0, nullptr, 7},
      {__LINE__, 7, [](gss_init_result &r) { r.major = 1; }, 0, nullptr, 14},
      {__LINE__, 7, [](gss_init_result &r) { r.token.assign(GSS_BYTES_MAX, 'x'); }, 0, nullptr, 14},
      {__LINE__, 8, nullptr, 0, nullptr, 2},
      {__LINE__, 7, nullptr, 13, nullptr, 13},
      {__LINE__, 7, nullptr, 2, nullptr, 2},
      {__LINE__, 7, nullptr, 0, long_token.c_str(), 7, 0},
      {__LINE__, 7, nullptr, 0, long_token.c_str() + 1, 7},
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
    EXPECT_EQ(authgss_create(*client, "vault", cred_of(row.session, row.app_token), false),
              nullptr);
    EXPECT_EQ(clnt_create_err().status, RPC_AUTHERROR);
    EXPECT_EQ(clnt_create_err().error.why, row.why);
    EXPECT_EQ(client->auth->kind(), AUTH_KIND_NONE);
    EXPECT_EQ(s.server.calls().size(), row.calls);
  }
}

TEST(gss_handshake, replies_are_believed_by_their_verifier) {
  const struct {
    int line;
    std::uint32_t flavor, seq;  // beside the call's
    std::string_view instead;
    const char *status;
  } rows[] = {
      {__LINE__, RPCSEC_GSS, 0, "mic", "0/0 5"},
      {__LINE__, AUTH_NONE, 0, "mic", "7/6"},
      {__LINE__, RPCSEC_GSS, 1, "mic", "7/6"},
      {__LINE__, RPCSEC_GSS, 0, "", "7/6"},
      {__LINE__, RPCSEC_GSS, 0, "twenty bytes of noise", "7/6"},
  };
  gss_server s;
  auto client = s.bound(false);
  for (const auto &row : rows) {
    SCOPED_TRACE(row.line);
    s.instead = [&](served_connection &c, const served_call &call) {
      std::string mic(row.instead);
      if (row.instead == "mic") gss_get_mic(s.context, call.xid + row.seq, word(call.xid), mic);
      c.send(record(reply_head(call.xid, row.flavor, mic) + word(5)));
      return true;
    };
    EXPECT_EQ(ask(*client), row.status);
  }
}

// The signed part ends where its 2048 bytes do; on the channel nothing is signed.
TEST(gss_handshake, a_handle_may_be_too_long_to_be_used) {
  const struct {
    int line;
    std::size_t size;
    bool channel, fits;
  } rows[] = {{__LINE__, 1996, false, true},
              {__LINE__, 1997, false, false},
              {__LINE__, 32744, false, false},
              {__LINE__, 32744, true, true}};
  for (const auto &row : rows) {
    SCOPED_TRACE(row.line);
    gss_server s;
    s.change = [&](gss_init_result &r) { r.handle.assign(row.size, 'h'); };
    auto client = s.bound(row.channel);
    test::caught_messages caught;
    EXPECT_EQ(ask(*client), row.fits ? "0/0 5" : "1/0");
    EXPECT_EQ(caught.text(), row.fits ? "" : "Cannot encode RPCSEC_GSS credential\n");
  }
}

TEST(gss_handshake, the_channel_comes_and_goes) {
  for (const char *token : {static_cast<const char *>(nullptr), "blob"}) {
    for (bool at_once : {false, true}) {
      SCOPED_TRACE(testing::Message() << (token != nullptr) << at_once);
      gss_server s;
      auto client = s.bound(at_once, token);
      EXPECT_EQ(ask(*client), "0/0 5");
      bool on = at_once;
      for (int turn = 0; turn < 3; turn++) {
        EXPECT_FALSE(authgss_channel(*client->auth, on)) << "it is so already";
        on = !on;
        EXPECT_TRUE(authgss_channel(*client->auth, on));
        EXPECT_EQ(client->stream()->encrypted(), on);
        EXPECT_EQ(ask(*client), "0/0 5");
      }
      EXPECT_TRUE(client->encrypted());
      std::vector<std::string> came = {"plain 20", "channel 0", "plain 20", "channel 0"};
      if (at_once) std::reverse(came.begin(), came.end());
      EXPECT_EQ(s.data, came);
      EXPECT_EQ(s.inits[0].channel_wanted, at_once);
    }
  }
}

TEST(gss_handshake, one_bit_at_each_byte_of_a_reply_on_the_channel) {
  gss_server s;
  std::size_t at = 0, size = 0;
  s.instead = [&](served_connection &connection, const served_call &call) {
    if (s.creds.back().proc != RPCSEC_GSS_DATA) return false;
    std::string bytes = record(s.fragment_of(reply_head(call.xid, RPCSEC_GSS, "") + word(5)));
    size = bytes.size();
    bytes[at] = static_cast<char>(bytes[at] ^ (1 << (at % 8)));
    // A length that is too long would be waited for.
    connection.closing = at < 4;
    connection.send(bytes);
    return true;
  };
  do {
    SCOPED_TRACE(at);
    auto client = s.bound(true);
    test::caught_messages caught;
    debug_set_level(3);
    std::string answer = ask(*client), told = caught.text();
    EXPECT_TRUE(answer == "4/0" || (at == 0 && answer == "7/13")) << answer;
    bool code = told.find("the MAC did not match") != told.npos;
    bool length = told.find("Unwrap failure") != told.npos;
    EXPECT_TRUE(at < 4 || code || (length && at >= size - 4)) << told;
  } while (++at < size);
  EXPECT_EQ(size, 80u);
}

// Whoever writes to the connection may announce a loss; what follows in plain is not believed.
TEST(gss_handshake, a_lost_context_ends_the_connection) {
  const struct {
    int line;
    std::string head;
    bool granted;
    const char *told;
  } rows[] = {
      {__LINE__, word(0x40000000) + word(0), false, ""},
      {__LINE__, word(0x40000000) + word(0), true, ""},
      {__LINE__, word(0x40000000), false, "Failed to receive raw buffers reauth message"},
  };
  for (const auto &row : rows) {
    SCOPED_TRACE(row.line);
    gss_server s;
    auto client = s.bound(true);
    s.instead = [&](served_connection &connection, const served_call &call) {
      std::string granted = reply_head(call.xid, RPCSEC_GSS, "") + word(5);
      bool cut = row.head.size() < 8;
      connection.closing = cut;
      if (!cut)
        connection.send(row.head + record(row.granted ? granted : reply_denied(call.xid, 13)));
      if (cut) connection.send(row.head);
      return true;
    };
    test::caught_messages caught;
    debug_set_level(3);
    EXPECT_EQ(ask(*client), "7/13");
    std::string told = caught.text();
    EXPECT_NE(told.find("Failed to authenticate using GSS"), told.npos) << told;
    EXPECT_NE(told.find(row.told), told.npos) << told;
    EXPECT_TRUE(client->auth->should_refresh(false));
    EXPECT_EQ(ask(*client), "7/7") << "there is nothing left to say it under";
    EXPECT_EQ(client->auth->flavor(), RPCSEC_GSS);
    EXPECT_EQ(s.data.size(), 1u) << "and nothing goes out in plain";
  }
}

}  // namespace
}  // namespace qvr
