// Tokens, identities, session records and the arguments of a handshake, byte by byte.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include "gss_fixture.h"
#include "gss_wire.h"
#include "raw_rpc.h"
#include "session_record.h"
#include "short_writer.h"
#include "temp_dir.h"

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
  EXPECT_TRUE(tells_short_streams(bytes.size(), [&](XDR &full) { return put(full, value); }));
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
  gss_reply_token file, nothing, refused;
  file.tag = GSS_REPLY_FILE;
  file.path = "/a/b";
  file.challenge = "c";
  expect_bytes<gss_reply_token>(file, raw_out().u32(1).text("/a/b").text("c").bytes,
                                xdr_put_reply_token, xdr_get_reply_token);
  expect_bytes<gss_reply_token>(nothing, raw_out().u32(0).u32(0).bytes, xdr_put_reply_token,
                                xdr_get_reply_token);
  std::string refusal = raw_out().u32(0).u32(1).u32(25007).text("go away").bytes;
  xdr_memory_reader in(refusal);
  ASSERT_TRUE(xdr_get_reply_token(in, refused));
  EXPECT_EQ(refused.error->code, 25007);

  gss_app_token blob, number;
  blob.bytes.assign("blob");
  expect_bytes<gss_app_token>(blob, raw_out().u32(2).text("blob").u32(0).bytes, xdr_put_app_token,
                              xdr_get_app_token);
  number.tag = GSS_APP_NUMBER;
  number.number = 9;
  expect_bytes<gss_app_token>(number, raw_out().u32(1).u32(9).bytes, xdr_put_app_token,
                              xdr_get_app_token);
  expect_bytes<gss_init_result>({"h", 1, 0, 128, "tok"},
                                raw_out().text("h").u32(1).u32(0).u32(128).text("tok").bytes,
                                xdr_put_gss_init_result, xdr_get_gss_init_result);
  expect_bytes<gss_call_cred>({1, RPCSEC_GSS_CONTINUE_INIT, 77, 1, "h"},
                              raw_out().u32(1).u32(2).u32(77).u32(1).text("h").bytes,
                              xdr_put_gss_cred, xdr_get_gss_cred);
  session_record record = gss_test_record(5);
  record.identity.user = user();
  record.reserved1.assign("r");
  raw_out bytes;
  bytes.u32(2).u32(1).u32(3).raw(user_bytes().bytes).u64(5);
  bytes.text(gss_test_key(5)).text("r").text("");
  expect_bytes<session_record>(record, bytes.bytes, xdr_put_session_record, xdr_get_session_record);
  record.identity.kind = GSS_IDENTITY_DAEMON;
  record.identity.daemon = gss_name_daemon(GSS_NAME_HOST, "vault", 390107, 6);
  raw_out of_daemon = raw_out().u32(2).u32(1).u32(2).raw(daemon_bytes().bytes).u64(5);
  of_daemon.text(gss_test_key(5)).text("r").text("");
  expect_bytes<session_record>(record, of_daemon.bytes, xdr_put_session_record,
                               xdr_get_session_record);
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
  EXPECT_TRUE(tells_short_streams(out.bytes().size(),
                                  [&](XDR &full) { return xdr_put_gss_init_args(full, args); }));
  EXPECT_FALSE(
      xdr_put_gss_init_result(refused, {"h", 1, 0, 1, std::string(GSS_BYTES_MAX + 1, 'x')}));
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
    std::string names;
  } rows[] = {
      {__LINE__, 0, nullptr, "//"},      {__LINE__, 1, "vault", "/vault/"},
      {__LINE__, 2, "vault", "vault//"}, {__LINE__, 3, "vault", "//vault"},
      {__LINE__, 4, "vault", "//"},      {__LINE__, 1, nullptr, "//"},
  };
  for (const auto &row : rows) {
    SCOPED_TRACE(row.line);
    gss_daemon_identity id = gss_name_daemon(row.type, row.name, 390107, 6);
    EXPECT_EQ(id.name1 + "/" + id.name2 + "/" + id.name3, row.names);
    EXPECT_EQ(id.version, 6);
  }
  auto shown = [](const gss_identity &peer) {
    gss_peer_names names;
    errobj_t *error = gss_peer_names_of(peer, names);
    return error != nullptr ? std::to_string(error->message.id)
                            : names.name + "@" + names.host + " " + names.user;
  };
  gss_identity peer;
  EXPECT_EQ(shown(peer), "ZRDUserNone@ZRDHostNone ZRDUserNone");
  peer.kind = GSS_IDENTITY_DAEMON;
  peer.daemon = gss_name_daemon(GSS_NAME_HOST, "vault", 390107, 6);
  EXPECT_EQ(shown(peer), "daemon:390107:6@vault root");
  peer.kind = GSS_IDENTITY_USER;
  EXPECT_EQ(shown(peer), "143916");
  peer.user = user();
  EXPECT_EQ(shown(peer), "lea@mars lea");
}

TEST(gss_tokens, only_a_private_regular_file_is_a_session_record) {
  temp_dir directory;
  const std::string path = directory.file("record");
  xdr_memory_writer good;
  xdr_put_session_record(good, gss_test_record(5));
  const struct {
    int line;
    char kind;  // file, link, pipe, directory, none
    mode_t mode;
    int longer;  // than the record is
    std::string failure;
  } rows[] = {
      {__LINE__, 'f', 0600, 0, ""},
      {__LINE__, 'f', 0400, 0, ""},
      {__LINE__, 'f', 0640, 0, "Could not open file\n"},
      {__LINE__, 'f', 0604, 0, "Could not open file\n"},
      {__LINE__, 'n', 0600, 0, "Could not open file\n"},
      {__LINE__, 'l', 0600, 0, "Could not open file\n"},
      {__LINE__, 'p', 0600, 0, "Could not open file\n"},
      {__LINE__, 'd', 0700, 0, "Could not open file\n"},
      {__LINE__, 'f', 0600, SESSION_FILE_MAX, "Could not open file\n"},
      {__LINE__, 'f', 0600, -1, "Could not decode data\n"},
      {__LINE__, 'f', 0600, -1000, "Could not decode data\n"},
  };
  for (const auto &row : rows) {
    SCOPED_TRACE(row.line);
    std::filesystem::remove_all(path);
    std::string bytes = good.bytes(), file = row.kind == 'l' ? path + ".real" : path;
    bytes.resize(
        static_cast<std::size_t>(std::max(0, static_cast<int>(bytes.size()) + row.longer)));
    if (row.kind == 'p') mkfifo(path.c_str(), row.mode);
    if (row.kind == 'd') mkdir(path.c_str(), row.mode);
    if (row.kind == 'f' || row.kind == 'l') {
      std::ofstream(file, std::ios::binary) << bytes;
      chmod(file.c_str(), row.mode);
    }
    if (row.kind == 'l') std::filesystem::create_symlink(file, path);
    session_record record;
    errobj_t *error = session_record_read(path, record);
    EXPECT_EQ(error != nullptr ? error->text : "", row.failure);
    EXPECT_EQ(record.key.view() == gss_test_key(5), row.failure.empty());
  }
  session_record record;
  EXPECT_NE(session_record_read(path + std::string("\0x", 2), record), nullptr);
}

}  // namespace
}  // namespace qvr
