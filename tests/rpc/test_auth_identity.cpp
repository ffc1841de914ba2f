// Who asks: the identity record, its groups, and AUTH_UNIX.
#include <gtest/gtest.h>

#include <cerrno>
#include <cstdio>

#include "auth_identity.h"
#include "auth_unix.h"
#include "clnt_error.h"
#include "kstr_auth.h"
#include "kstr_state.h"

namespace qvr {
namespace {

class made_up_user : public identity_source {
 public:
  std::vector<std::uint32_t> ids = {10, 20};
  std::uint32_t uid = 1000, gid = 20;
  int failure = 0;
  const char *limit = nullptr;
  std::size_t name_size = 0;
  std::uint32_t effective_uid() const override { return uid; }
  std::uint32_t effective_gid() const override { return gid; }
  bool groups(std::vector<std::uint32_t> &to) const override {
    errno = failure;
    to = ids;
    return failure == 0;
  }
  bool all_groups(std::vector<std::uint32_t> &to) const override { return groups(to); }
  const char *environment(const char *) const override { return limit; }
  std::string user_name(std::uint32_t id) const override { return id == 1000 ? "ann" : ""; }
  std::string group_name(std::uint32_t id) const override {
    if (id == 99) return {};
    char name[16];
    std::snprintf(name, sizeof name, "g%04u", id);
    return name + std::string(name_size, 'x');
  }
  std::string host_name() const override { return "vault"; }
  std::string nis_domain() const override { return "nisdom"; }
};

TEST(identity, groups) {
  struct row {
    int line;
    std::size_t count;  // ids from 100 on
    std::uint32_t primary;
    int failure;
    const char *limit;
    std::size_t name_size;  // bytes behind "gNNNN"
    std::size_t kept;
    const char *last;
  };
  const row rows[] = {
      {__LINE__, 3, 101, 0, nullptr, 0, 3, "g0102"},
      {__LINE__, 3, 20, 0, nullptr, 0, 4, "g0102"},
      {__LINE__, 3, 99, 0, nullptr, 0, 3, "g0102"},
      {__LINE__, 3, 20, EINVAL, nullptr, 0, 1, "g0020"},
      {__LINE__, 512, 100, 0, nullptr, 0, 512, "g0611"},
      {__LINE__, 512, 20, 0, nullptr, 0, 512, "g0610"},
      {__LINE__, 512, 100, 0, "600", 0, 512, "g0611"},
      {__LINE__, 512, 100, 0, "0", 0, 1, "g0100"},
      {__LINE__, 512, 100, 0, "-5", 0, 1, "g0100"},
      {__LINE__, 512, 100, 0, "7", 0, 7, "g0106"},
      // 10914 bytes hold 99 names of 110.
      {__LINE__, 300, 100, 0, nullptr, 105, 99, nullptr},
  };
  for (const row &r : rows) {
    SCOPED_TRACE(r.line);
    made_up_user user;
    user.ids.clear();
    for (std::uint32_t i = 0; i < r.count; i++) user.ids.insert(user.ids.begin(), 100 + i);
    user.gid = r.primary;
    user.failure = r.failure;
    user.limit = r.limit;
    user.name_size = r.name_size;
    auto names = identity_groups(user);
    ASSERT_EQ(names.size(), r.kept);
    EXPECT_TRUE(std::is_sorted(names.begin(), names.end()));
    if (r.last != nullptr) {
      EXPECT_EQ(names.back(), r.last);
    }
  }
}

TEST(identity, record) {
  made_up_user user;
  attrlist parameters, ldap, tickets;
  attrlist_set(parameters, "auth mmdb preferred version", "6");
  attrlist_set(ldap, "principal authority", "corp");
  attrlist_set(tickets, "session ticket", "t");
  auto build = [&](const char *service, const char *server, bool flag) {
    return build_kstrauth_parms(service, server, parameters, 3, flag, &user);
  };
  auto attribute = [](const auth_identity &id, const char *name) {
    const std::string *value = attrlist_first(id.attributes, name);
    return value != nullptr ? *value : "-";
  };
  kstr_set_thread_token("tok");
  auth_identity id = build("qvrmmdbd", "vault", false);
  EXPECT_EQ(id.user + "," + id.machname + "," + id.domaintype + "," + id.domain,
            "ann,vault,nis,nisdom");
  EXPECT_EQ(id.time, id.exptime);
  EXPECT_FALSE(id.canonclient);
  EXPECT_EQ(attribute(id, "auth security token"), "tok");
  EXPECT_EQ(attribute(id, "hostname"), "vault");
  EXPECT_EQ(attribute(id, "auth mmdb preferred version"), "6");
  EXPECT_EQ(attribute(id, "LocalOS_Admin"), "-");

  user.uid = 0;
  kstr_set_thread_ldap(ldap);
  kstr_set_session_tickets(tickets);
  struct row {
    int line;
    const char *service, *server;
    bool flag;
    const char *admin, *ticket;
  };
  const row rows[] = {{__LINE__, "qvrmmdbd", "vault", false, "Yes", "t"},
                      {__LINE__, "qvrjobd", "vault", true, "No", "-"},
                      {__LINE__, "qvrjobd", "", false, "Yes", "t"}};
  for (const row &r : rows) {
    SCOPED_TRACE(r.line);
    id = build(r.service, r.server, r.flag);
    EXPECT_EQ(id.user + "," + id.domaintype + "," + id.domain, "nobody,ldap,corp");
    EXPECT_EQ(attribute(id, "LocalOS_Admin"), r.admin);
    EXPECT_EQ(attribute(id, "session ticket"), r.ticket);
    EXPECT_EQ(attribute(id, "auth security token"), "-");
  }
  kstr_set_thread_user("bob");
  EXPECT_EQ(build("qvrd", "vault", false).user, "bob");
  kstr_thread() = {};
  kstr_set_session_tickets({});
}

TEST(identity, chains_cross_the_wire) {
  auth_identity id;
  id.time = 7;
  id.user = "ann";
  id.groups = {"a", "b"};
  attrlist_set(id.attributes, "hostname", "vault");
  for (std::size_t count : std::initializer_list<std::size_t>{1, 3, 16, 17}) {
    SCOPED_TRACE(count);
    xdr_memory_writer out;
    ASSERT_TRUE(xdr_put_identities(out, std::vector<auth_identity>(count, id)));
    xdr_memory_reader in(out.bytes());
    std::vector<auth_identity> got;
    ASSERT_EQ(xdr_get_identities(in, got), count <= 16);
    if (count > 16) continue;
    ASSERT_EQ(got.size(), count);
    EXPECT_EQ(got.back().groups, id.groups);
    EXPECT_EQ(got.back().attributes, id.attributes);
    for (std::size_t cut = 0; cut < out.bytes().size(); cut += 3) {
      xdr_memory_reader part(std::string_view(out.bytes()).substr(0, cut));
      EXPECT_FALSE(xdr_get_identities(part, got));
    }
  }
  id.groups.assign(513, "g");
  xdr_memory_writer out;
  EXPECT_FALSE(xdr_put_identities(out, {id}));
}

TEST(auth_unix_handle, credential_and_short_form) {
  made_up_user user;
  auto auth = authunix_create(user);
  ASSERT_TRUE(auth);
  auto marshalled = [&](opaque_auth &cred) {
    xdr_memory_writer out;
    EXPECT_TRUE(auth->marshal(out, {}));
    xdr_memory_reader in(out.bytes());
    opaque_auth verifier;
    EXPECT_TRUE(xdr_get_opaque_auth(in, cred) && xdr_get_opaque_auth(in, verifier));
    EXPECT_EQ(verifier.flavor, AUTH_NONE);
  };
  opaque_auth cred;
  marshalled(cred);
  EXPECT_EQ(cred.flavor, AUTH_UNIX);
  auth_unix_body body;
  xdr_memory_reader in(cred.body);
  ASSERT_TRUE(xdr_get_auth_unix(in, body));
  EXPECT_EQ(body.host, "vault");
  EXPECT_EQ(body.uid, 1000u);
  EXPECT_EQ(body.gids, (std::vector<std::uint32_t>{10, 20, 20})) << "the effective one last";
  EXPECT_FALSE(auth->refresh()) << "the whole credential is in use";

  xdr_memory_writer handed;
  ASSERT_TRUE(xdr_put_opaque_auth(handed, {AUTH_SHORT, "shrt"}));
  EXPECT_TRUE(auth->validate({AUTH_SHORT, handed.bytes()}, 1));
  marshalled(cred);
  EXPECT_EQ(cred.flavor, AUTH_SHORT);
  EXPECT_EQ(cred.body, "shrt");
  EXPECT_TRUE(auth->refresh());
  marshalled(cred);
  EXPECT_EQ(cred.flavor, AUTH_UNIX);
}

TEST(auth_unix_handle, many_groups_go_out_whole) {
  made_up_user user;
  user.ids.assign(65536, 7);
  auto auth = authunix_create(user);
  ASSERT_TRUE(auth);
  xdr_memory_writer out;
  ASSERT_TRUE(auth->marshal(out, {}));
  EXPECT_GT(out.bytes().size(), 65537u * 4);
  user.failure = EPERM;
  EXPECT_FALSE(authunix_create(user));
  EXPECT_EQ(clnt_create_err().error.error, EPERM);
}

}  // namespace
}  // namespace qvr
