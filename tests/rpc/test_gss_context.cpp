// The two sides of the mechanism against each other, and what each refuses.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include "gss_fixture.h"
#include "temp_dir.h"

namespace qvr {
namespace {

struct outcome {
  std::uint32_t major = 0, flags = 0, lifetime = 0;
  std::string token;
  std::int32_t id = -1;  // of the error; -1: none
  std::string text;
  void take(const errobj_t *error) {
    if (error == nullptr) return;
    id = error->message.id;
    text = error->text;
  }
};

outcome initiate(const gss_cred &cred, gss_ctx &ctx, std::string_view input,
                 std::uint32_t flags = 0) {
  outcome o;
  o.flags = flags;
  o.take(gss_init_sec_context(cred, ctx, input, o.token, o.lifetime, o.major, o.flags));
  return o;
}

outcome accept(gss_acceptor &acceptor, gss_ctx &ctx, std::string_view input) {
  outcome o;
  o.take(gss_accept_sec_context(acceptor, ctx, input, o.token, o.major, o.flags));
  return o;
}

TEST(gss_context, sessions_are_proved_by_both_sides) {
  struct {
    int line;
    std::uint32_t kind, qop;
    std::uint32_t flags;  // that the initiator passes in
    bool mutual;
  } rows[] = {
      {__LINE__, GSS_TOKEN_SESSION, QOP_SECURE, 0, true},
      {__LINE__, GSS_TOKEN_SESSION, QOP_SECURE, 2, true},
      {__LINE__, GSS_TOKEN_SESSION, QOP_SECURE, 4, false},
      {__LINE__, GSS_TOKEN_SESSION, QOP_CHECKSUM, 0, true},
      {__LINE__, GSS_TOKEN_SESSION_DAEMON, QOP_SECURE, 4, true},
  };
  for (const auto &row : rows) {
    SCOPED_TRACE(row.line);
    gss_test_acceptor acceptor;
    acceptor.sessions[7] = gss_test_record(7, row.qop);
    gss_cred cred = gss_test_cred(7, row.qop, row.kind);
    cred.token.counter = 41;
    gss_ctx mine, theirs;
    outcome first = initiate(cred, mine, {}, row.flags);
    ASSERT_EQ(first.id, -1) << first.text;
    EXPECT_EQ(first.major, row.mutual ? GSS_CONTINUE_NEEDED : GSS_COMPLETE);
    EXPECT_EQ((first.flags & GSS_FLAG_NO_REPLY) != 0, !row.mutual);
    outcome answer = accept(acceptor, theirs, first.token);
    ASSERT_EQ(answer.id, -1) << answer.text;
    EXPECT_EQ(answer.major, GSS_COMPLETE);
    EXPECT_EQ(answer.token.empty(), !row.mutual);
    EXPECT_EQ((answer.flags & GSS_FLAG_NO_REPLY) != 0, !row.mutual);
    EXPECT_EQ(theirs.peer.user.user, "lea");
    if (row.mutual) {
      EXPECT_EQ(mine.state, GSS_CTX_WAIT_PROOF);
      // Both proofs, as another program makes them.
      std::string number = word(0) + word(7), nonce(cred.token.nonce.view());
      std::uint32_t seq = row.kind == GSS_TOKEN_SESSION_DAEMON ? 41 : 0;
      if (row.qop == QOP_SECURE) {
        EXPECT_NE(first.token.find(hmac_of(cred.key.view(), word(seq) + number)),
                  std::string::npos);
        EXPECT_EQ(answer.token, hmac_of(cred.key.view(), word(seq + 1) + number + nonce));
      }
      std::string forged = answer.token;
      forged[0] = static_cast<char>(forged[0] ^ 1);
      outcome refused = initiate(cred, mine, forged);
      EXPECT_EQ(refused.id, 1001);
      EXPECT_EQ(refused.major, GSS_BAD_SIGNATURE);
      EXPECT_EQ(initiate(cred, mine, {}).id, 0) << "a proof is needed";
      outcome last = initiate(cred, mine, answer.token);
      EXPECT_EQ(last.id, -1);
      EXPECT_EQ(last.major, GSS_COMPLETE);
      EXPECT_TRUE(last.token.empty());
      EXPECT_EQ(last.lifetime, GSS_LIFETIME_FOREVER);
    } else {
      EXPECT_EQ(first.lifetime, GSS_LIFETIME_FOREVER);
    }
    EXPECT_EQ(mine.state, GSS_CTX_COMPLETE);
    gss_buffer wrapped, plain;
    ASSERT_EQ(gss_wrap(mine, "over the channel", wrapped), nullptr);
    ASSERT_EQ(gss_unwrap(theirs, wrapped.view(), plain), nullptr);
    EXPECT_EQ(plain.view(), "over the channel");
    mine.close();
    EXPECT_TRUE(mine.key().empty());
    EXPECT_NE(gss_wrap(mine, "x", wrapped), nullptr);
  }
}

TEST(gss_context, credentials_that_lead_nowhere) {
  for (int spoilt = 0; spoilt < 5; spoilt++) {
    SCOPED_TRACE(spoilt);
    gss_cred cred = gss_test_cred(7);
    if (spoilt == 0) cred.token.tag = 0;
    if (spoilt == 1) cred.token.tag = 7;
    if (spoilt == 2) cred.key.assign(gss_test_key().substr(1));
    if (spoilt == 3) cred.qop = nullptr;
    if (spoilt == 4) cred.token.nonce.assign(std::string(GSS_BYTES_MAX + 1, 'n'));
    gss_ctx ctx;
    outcome o = initiate(cred, ctx, {});
    EXPECT_EQ(o.id, 0);
    EXPECT_NE(o.major, GSS_COMPLETE);
    EXPECT_TRUE(o.token.empty());
  }
}

TEST(gss_context, an_acceptor_judges_tokens) {
  gss_test_acceptor acceptor;
  acceptor.sessions[7] = gss_test_record(7);
  auto token = [](std::uint32_t tag, std::uint64_t session = 0) {
    gss_init_token t;
    t.tag = tag;
    t.session = session;
    t.proof = "wrong proof";
    xdr_memory_writer out;
    xdr_put_init_token(out, t);
    return out.take();
  };
  struct {
    int line;
    std::string token;
    bool insecure;
    std::int32_t id;
    std::uint32_t major;
  } rows[] = {
      {__LINE__, token(1), true, -1, GSS_COMPLETE},
      {__LINE__, token(1), false, 89393, GSS_FAILURE},
      {__LINE__, token(2), false, 997, GSS_FAILURE},
      {__LINE__, token(3), false, 997, GSS_FAILURE},
      {__LINE__, token(6), false, 997, GSS_FAILURE},
      {__LINE__, token(4, 7), false, 1001, GSS_BAD_SIGNATURE},
      {__LINE__, token(4, 8), false, 0, GSS_FAILURE},
      {__LINE__, std::string("\0\0\0\7", 4), false, 89394, GSS_DEFECTIVE_CREDENTIAL},
      {__LINE__, "", false, 89394, GSS_DEFECTIVE_CREDENTIAL},
  };
  for (const auto &row : rows) {
    SCOPED_TRACE(row.line);
    acceptor.insecure = row.insecure;
    gss_ctx ctx;
    outcome o = accept(acceptor, ctx, row.token);
    EXPECT_EQ(o.id, row.id);
    EXPECT_EQ(o.major, row.major);
    EXPECT_EQ(ctx.state, row.id == -1 ? GSS_CTX_COMPLETE : GSS_CTX_NEW);
    EXPECT_EQ(ctx.qop != nullptr, row.id == -1);
  }
}

// A claimant proves itself by reading a file that is meant for nobody else.
TEST(gss_context, the_authentication_service_hands_out_a_key) {
  temp_dir directory;
  const std::string path = directory.file("record");
  gss_test_acceptor service;
  service.sessions[7] = gss_test_record(7);
  service.service = true;
  gss_cred cred;
  cred.token.tag = GSS_TOKEN_USER;
  cred.token.user.user = "lea";
  const struct {
    int line;
    bool known;           // to the service
    char tag;             // of its answer
    int spoilt;           // byte of the record, below 0 from its end; 0: none
    std::size_t size;     // of the record
    std::string failure;  // of the claimant
    bool proved;          // to the service
  } rows[] = {
      {__LINE__, true, 1, 0, 300, "", true},
      {__LINE__, true, 1, -20, 300, "", false},
      {__LINE__, false, 0, 0, 300, "nobody knows you", false},
      {__LINE__, true, 2, 0, 300,
       "Cannot open client side named pipe for authentication: this platform has none.\n", false},
      {__LINE__, true, 9, 0, 300, "The authentication service's token does not decode", false},
      {__LINE__, true, 1, 3, 300, "Could not find qop entry in table", false},
      {__LINE__, true, 1, 0, 20, "Could not decode data\n", false},
  };
  for (const auto &row : rows) {
    SCOPED_TRACE(row.line);
    service.path = row.known ? path : "";
    gss_ctx mine, theirs;
    outcome claim = initiate(cred, mine, {});
    EXPECT_EQ(claim.major, GSS_CONTINUE_NEEDED);
    EXPECT_EQ(mine.state, GSS_CTX_WAIT_SERVICE);
    outcome answer = accept(service, theirs, claim.token);
    ASSERT_EQ(answer.major, GSS_CONTINUE_NEEDED);
    EXPECT_EQ(service.claimed, "lea");
    answer.token[3] = row.tag;
    xdr_memory_writer out;
    xdr_put_session_record(out, gss_test_record(7));
    std::string record = out.bytes().substr(0, row.size);
    if (row.spoilt != 0) {
      auto from = row.spoilt < 0 ? record.end() : record.begin();
      from[row.spoilt] = static_cast<char>(from[row.spoilt] ^ 7);
    }
    chmod(directory.write("record", record).c_str(), 0600);
    outcome proof = initiate(cred, mine, answer.token);
    EXPECT_EQ(proof.text, row.failure);
    if (!row.failure.empty()) {
      EXPECT_TRUE(proof.token.empty());
      continue;
    }
    EXPECT_EQ(proof.major, GSS_COMPLETE);
    EXPECT_EQ(proof.token, hmac_of(mine.key(), word(0) + word(0) + word(7) + "prove it"));
    outcome done = accept(service, theirs, proof.token);
    EXPECT_EQ(done.major, row.proved ? GSS_COMPLETE : GSS_BAD_SIGNATURE);
  }
}

TEST(gss_context, acquiring_without_the_service) {
  gss_target target;
  target.insecure = true;
  target.app_token = "blob";
  std::shared_ptr<gss_cred> cred;
  ASSERT_EQ(gss_acquire_cred(GSS_INITIATE, target, cred), nullptr);
  EXPECT_EQ(cred->token.tag, GSS_TOKEN_INSECURE);
  EXPECT_EQ(cred->app_token.bytes.view(), "blob");
  gss_ctx ctx;
  outcome o = initiate(*cred, ctx, {});
  EXPECT_EQ(o.major, GSS_COMPLETE);
  EXPECT_EQ(o.flags, GSS_FLAG_NO_REPLY);
  EXPECT_EQ(ctx.qop->qop, QOP_CHECKSUM);
  EXPECT_EQ(gss_acquire_cred(3, target, cred)->text, "Invalid usage prameter");
  EXPECT_EQ(cred, nullptr);
}

}  // namespace
}  // namespace qvr
