// Tokens, identities, session records and the arguments of a handshake, byte by byte.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>

#include "gss_fixture.h"
#include "gss_wire.h"
#include "raw_rpc.h"
#include "session_record.h"

namespace qvr {
namespace {

using test::raw_out;

constexpr std::string_view no_list{"\0\0\0\0\0\0\0\0\0\0\0\0", 12};  // one nameless attribute

raw_out user_bytes() {
  raw_out out;
  out.text("lea").text("").text("").text("mars").text("nis").text("lab").u32(2);
  out.text("adm").text("").text("users").text("").u32(3);
  out.text("locale").u32(1).text("C").u32(0).u32(0).raw(no_list);
  return out;
}
raw_out daemon_bytes() {
  return raw_out().text("").text("vault").text("").u32(390107).u32(6);
}

gss_user_identity user() {
  gss_user_identity id;
  id.user = "lea";
  id.host = "mars";
  id.domain_type = "nis";
  id.domain = "lab";
  id.groups = {{"adm", ""}, {"users", ""}};
  id.application = 3;
  attrlist_set(id.attributes, "locale", "C");
  return id;
}

template <class T>
using codec_put = bool (*)(XDR &, const T &);
template <class T>
using codec_get = bool (*)(XDR &, T &);

// The value makes the bytes, the bytes make a value that makes the same bytes, and no part of them
// does.
template <class T>
void expect_bytes(const T &value, const std::string &bytes, codec_put<T> put, codec_get<T> get) {
  xdr_memory_writer out;
  ASSERT_TRUE(put(out, value));
  EXPECT_EQ(hex_of(out.bytes()), hex_of(bytes));
  T back;
  xdr_memory_reader in(bytes);
  ASSERT_TRUE(get(in, back));
  EXPECT_EQ(in.remaining(), 0u);
  xdr_memory_writer again;
  ASSERT_TRUE(put(again, back));
  EXPECT_EQ(hex_of(again.bytes()), hex_of(bytes));
  for (std::size_t size = 0; size < bytes.size(); size++) {
    xdr_memory_reader part(std::string_view(bytes).substr(0, size));
    T ignored;
    EXPECT_FALSE(get(part, ignored)) << size;
  }
}

TEST(gss_tokens, tokens_of_every_kind) {
  gss_init_token t;
  t.user = user();
  t.daemon = gss_name_daemon(GSS_NAME_HOST, "vault", 390107, 6);
  t.text = "other";
  t.number = -2;
  t.session = 0x0102030405060708;
  t.mutual = true;
  t.counter = 5;
  t.proof = "proof";
  t.nonce.assign("nonce");
  struct {
    int line;
    std::uint32_t tag;
    std::string bytes;
  } rows[] = {
      {__LINE__, 1, raw_out().u32(1).bytes},
      {__LINE__, 2, raw_out().u32(2).raw(user_bytes().bytes).raw(daemon_bytes().bytes).bytes},
      {__LINE__, 3, raw_out().u32(3).text("other").raw(daemon_bytes().bytes).bytes},
      {__LINE__, 4, raw_out().u32(4).u64(t.session).u32(1).text("proof").text("nonce").bytes},
      {__LINE__, 5, raw_out().u32(5).u64(t.session).u32(5).text("proof").text("nonce").bytes},
      {__LINE__, 6,
       raw_out().u32(6).text("other").u32(0xfffffffe).raw(daemon_bytes().bytes).raw(no_list).bytes},
  };
  for (const auto &row : rows) {
    SCOPED_TRACE(row.line);
    t.tag = row.tag;
    expect_bytes<gss_init_token>(t, row.bytes, xdr_put_init_token, xdr_get_init_token);
  }
  t.tag = 7;
  xdr_memory_writer out;
  EXPECT_FALSE(xdr_put_init_token(out, t));
}

TEST(gss_tokens, answers_application_tokens_and_handshake_parts) {
  gss_reply_token file;
  file.tag = GSS_REPLY_FILE;
  file.path = "/a/b";
  file.challenge = "c";
  expect_bytes<gss_reply_token>(file, raw_out().u32(1).text("/a/b").text("c").bytes,
                                xdr_put_reply_token, xdr_get_reply_token);
  gss_reply_token nothing;
  expect_bytes<gss_reply_token>(nothing, raw_out().u32(0).u32(0).bytes, xdr_put_reply_token,
                                xdr_get_reply_token);
  gss_reply_token refused;
  std::string refusal = raw_out().u32(0).u32(1).u32(25007).text("go away").bytes;
  xdr_memory_reader in(refusal);
  ASSERT_TRUE(xdr_get_reply_token(in, refused));
  EXPECT_EQ(refused.error->code, 25007);

  gss_app_token blob;
  blob.bytes.assign("blob");
  expect_bytes<gss_app_token>(blob, raw_out().u32(2).text("blob").u32(0).bytes, xdr_put_app_token,
                              xdr_get_app_token);
  gss_app_token number;
  number.tag = GSS_APP_NUMBER;
  number.number = 9;
  expect_bytes<gss_app_token>(number, raw_out().u32(1).u32(9).bytes, xdr_put_app_token,
                              xdr_get_app_token);
  gss_init_result result;
  result.handle = "h";
  result.major = 1;
  result.window = 128;
  result.token = "tok";
  expect_bytes<gss_init_result>(result,
                                raw_out().text("h").u32(1).u32(0).u32(128).text("tok").bytes,
                                xdr_put_gss_init_result, xdr_get_gss_init_result);
  gss_call_cred cred;
  cred.proc = RPCSEC_GSS_CONTINUE_INIT;
  cred.seq = 77;
  cred.handle = "h";
  expect_bytes<gss_call_cred>(cred, raw_out().u32(1).u32(2).u32(77).u32(1).text("h").bytes,
                              xdr_put_gss_cred, xdr_get_gss_cred);
  session_record record = gss_test_record(5);
  record.identity.user = user();
  record.reserved1.assign("r");
  expect_bytes<session_record>(record,
                               raw_out()
                                   .u32(2)
                                   .u32(1)
                                   .u32(3)
                                   .raw(user_bytes().bytes)
                                   .u64(5)
                                   .text(gss_test_key(5))
                                   .text("r")
                                   .text("")
                                   .bytes,
                               xdr_put_session_record, xdr_get_session_record);
}

TEST(gss_tokens, an_older_peer_says_less_in_its_first_call) {
  struct {
    int line;
    std::string bytes;
    bool app, channel;
  } rows[] = {
      {__LINE__, raw_out().text("tok").bytes, false, false},
      {__LINE__, raw_out().text("tok").u32(0).bytes, false, false},
      {__LINE__, raw_out().text("tok").u32(4).u32(0).u32(1).bytes, false, false},
      {__LINE__, raw_out().text("tok").u32(4).u32(0).u32(1).u32(1).text("").bytes, true, true},
      {__LINE__, raw_out().text("tok").u32(4).u32(0).u32(0).u32(1).text("me").bytes, false, true},
      {__LINE__,
       raw_out().text("tok").u32(4).u32(0).u32(1).u32(1).text(std::string(4097, 'p')).bytes, false,
       false},
  };
  for (const auto &row : rows) {
    SCOPED_TRACE(row.line);
    xdr_memory_reader in(row.bytes);
    gss_init_args args;
    ASSERT_TRUE(xdr_get_gss_init_args(in, args));
    EXPECT_EQ(args.token, "tok");
    EXPECT_EQ(args.app_token_follows, row.app);
    EXPECT_EQ(args.channel_wanted, row.channel);
  }
  gss_init_args args;
  args.token = "tok";
  args.channel_wanted = true;
  xdr_memory_writer out, refused;
  ASSERT_TRUE(xdr_put_gss_init_args(out, args));
  EXPECT_EQ(hex_of(out.bytes()),
            hex_of(raw_out().text("tok").u32(4).u32(0).u32(0).u32(1).text("").bytes));
  args.principal.assign(GSS_PRINCIPAL_MAX + 1, 'p');
  testing::internal::CaptureStderr();
  EXPECT_FALSE(xdr_put_gss_init_args(refused, args));
  EXPECT_NE(testing::internal::GetCapturedStderr().find("longer than the maximum allowed length"),
            std::string::npos);
}

TEST(gss_tokens, names_of_daemons_and_peers) {
  struct {
    int line;
    int type;
    const char *name;
    std::string one, two, three;
  } rows[] = {
      {__LINE__, 0, nullptr, "", "", ""},      {__LINE__, 1, "vault", "", "vault", ""},
      {__LINE__, 2, "vault", "vault", "", ""}, {__LINE__, 3, "vault", "", "", "vault"},
      {__LINE__, 4, "vault", "", "", ""},      {__LINE__, 1, nullptr, "", "", ""},
  };
  for (const auto &row : rows) {
    SCOPED_TRACE(row.line);
    gss_daemon_identity id = gss_name_daemon(row.type, row.name, 390107, 6);
    EXPECT_EQ(id.name1, row.one);
    EXPECT_EQ(id.name2, row.two);
    EXPECT_EQ(id.name3, row.three);
    EXPECT_EQ(id.version, 6);
  }
  gss_identity peer;
  gss_peer_names names;
  ASSERT_EQ(gss_peer_names_of(peer, names), nullptr);
  EXPECT_EQ(names.name + "@" + names.host, "ZRDUserNone@ZRDHostNone");
  peer.kind = GSS_IDENTITY_DAEMON;
  peer.daemon = gss_name_daemon(GSS_NAME_HOST, "vault", 390107, 6);
  ASSERT_EQ(gss_peer_names_of(peer, names), nullptr);
  EXPECT_EQ(names.name + "@" + names.host + " " + names.user, "daemon:390107:6@vault root");
  peer.kind = GSS_IDENTITY_USER;
  EXPECT_EQ(gss_peer_names_of(peer, names)->message.id, 143916);
  peer.user = user();
  ASSERT_EQ(gss_peer_names_of(peer, names), nullptr);
  EXPECT_EQ(names.name + "@" + names.host, "lea@mars");
}

class session_file : public testing::Test {
 protected:
  void SetUp() override {
    char name[] = "/tmp/session-XXXXXX";
    directory = mkdtemp(name);
    path = directory + "/record";
  }
  void TearDown() override { std::filesystem::remove_all(directory); }
  static std::string good() {
    xdr_memory_writer out;
    xdr_put_session_record(out, gss_test_record(5));
    return out.take();
  }
  std::string directory, path;
};

TEST_F(session_file, only_a_private_regular_file_is_believed) {
  using make_t = void (*)(const std::string &path, const std::string &good);
  auto put = [](const std::string &file, std::string_view bytes, mode_t mode) {
    std::ofstream(file, std::ios::binary) << bytes;
    chmod(file.c_str(), mode);
  };
  static const auto write_as = put;
  struct row {
    int line;
    make_t make;
    const char *failure;
  };
  const row rows[] = {
      {__LINE__, [](const std::string &p, const std::string &g) { write_as(p, g, 0600); }, nullptr},
      {__LINE__, [](const std::string &p, const std::string &g) { write_as(p, g, 0400); }, nullptr},
      {__LINE__, [](const std::string &p, const std::string &g) { write_as(p, g, 0640); },
       "Could not open file\n"},
      {__LINE__, [](const std::string &p, const std::string &g) { write_as(p, g, 0604); },
       "Could not open file\n"},
      {__LINE__, [](const std::string &, const std::string &) {}, "Could not open file\n"},
      {__LINE__,
       [](const std::string &p, const std::string &g) {
         write_as(p + ".real", g, 0600);
         std::filesystem::create_symlink(p + ".real", p);
       },
       "Could not open file\n"},
      {__LINE__, [](const std::string &p, const std::string &) { mkfifo(p.c_str(), 0600); },
       "Could not open file\n"},
      {__LINE__, [](const std::string &p, const std::string &) { mkdir(p.c_str(), 0700); },
       "Could not open file\n"},
      {__LINE__,
       [](const std::string &p, const std::string &g) {
         write_as(p, g + std::string(SESSION_FILE_MAX, 'x'), 0600);
       },
       "Could not open file\n"},
      {__LINE__,
       [](const std::string &p, const std::string &g) {
         write_as(p, g.substr(0, g.size() - 1), 0600);
       },
       "Could not decode data\n"},
      {__LINE__, [](const std::string &p, const std::string &) { write_as(p, "", 0600); },
       "Could not decode data\n"},
  };
  for (const row &at : rows) {
    SCOPED_TRACE(at.line);
    std::filesystem::remove_all(path);
    at.make(path, good());
    session_record record;
    errobj_t *error = session_record_read(path, record);
    EXPECT_EQ(error == nullptr, at.failure == nullptr);
    EXPECT_EQ(error != nullptr ? error->text : "", at.failure != nullptr ? at.failure : "");
    EXPECT_EQ(record.key.view() == gss_test_key(5), at.failure == nullptr);
  }
  session_record record;
  EXPECT_NE(session_record_read(path + std::string("\0x", 2), record), nullptr);
}

}  // namespace
}  // namespace qvr
