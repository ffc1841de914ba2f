// The host layer on the system's own resolver, in a machine that has names of its own.
#include <gtest/gtest.h>

#include "hosts.h"
#include "run_command.h"

namespace qvr {
namespace {

// Runs inside the private host.
TEST(hosts_real, DISABLED_inside) {
  char name[256];
  EXPECT_STREQ("vault.example.com", ks_getlocalhost(name, sizeof name));
  struct row_t {
    int line;
    const char *name;
    bool local_when_banned, local;
  } rows[] = {
      {__LINE__, "localhost", true, true},
      {__LINE__, "vault", true, true},
      {__LINE__, "vault.example.com", true, true},
      {__LINE__, "10.77.0.1", true, true},
      {__LINE__, "backup", true, true},    // an alias in the hosts file
      {__LINE__, "vault-b", false, true},  // the second interface
      {__LINE__, "10.77.0.2", false, true},
      {__LINE__, "mars", false, false},
      {__LINE__, "192.0.2.9", false, false},
      {__LINE__, "nobody.example.com", false, false},
  };
  for (const char *state : {"banned", "uncached", "cached"}) {
    ks_set_rdns_state(state);
    ks_dns_flush();
    for (const row_t &row : rows) {
      SCOPED_TRACE(testing::Message() << state << " " << row.line);
      bool banned = ks_get_rdns_state() == KS_RDNS_BANNED;
      EXPECT_EQ(banned ? row.local_when_banned : row.local, ks_is_local_host(row.name));
    }
  }
  EXPECT_TRUE(ks_same_host("vault-b", "vault"));
  EXPECT_FALSE(ks_same_host("vault-b", "mars"));

  struct address_row_t {
    int line;
    const char *address;
    bool local;
    const char *host;  // by a reverse look-up; null: none
  } addresses[] = {
      {__LINE__, "10.77.0.1", true, "vault.example.com"},
      {__LINE__, "::ffff:10.77.0.2", true, "vault-b"},
      {__LINE__, "127.3.2.1", true, nullptr},
      {__LINE__, "192.0.2.9", false, "mars.example.com"},
      {__LINE__, "192.0.2.10", false, nullptr},
  };
  for (const address_row_t &row : addresses) {
    SCOPED_TRACE(row.line);
    sockaddr_storage address;
    socklen_t length;
    ASSERT_TRUE(ks_parse_address(row.address, address, length));
    auto *plain = reinterpret_cast<sockaddr *>(&address);
    EXPECT_EQ(row.local, ks_is_local_address(plain));
    int rc = ks_inet_getnameinfo(plain, length, name, sizeof name, nullptr, 0, NI_NAMEREQD);
    EXPECT_EQ(row.host == nullptr, rc != 0);
    if (row.host != nullptr) {
      EXPECT_STREQ(row.host, name);
    }
  }
}

TEST(hosts_real, a_machine_of_its_own) {
  test::private_host_options options;
  options.hostname = "vault";
  options.addresses = {"10.77.0.1", "10.77.0.2"};
  options.set_file("/etc/hosts",
                   "127.0.0.1 localhost\n"
                   "10.77.0.1 vault.example.com vault backup\n"
                   "10.77.0.2 vault-b\n"
                   "192.0.2.9 mars.example.com mars\n");
  std::string why;
  auto host = test::private_host::make(options, why);
  if (host == nullptr) GTEST_SKIP() << why;
  test::command_options run;
  run.host = host.get();
  test::command_result result = test::run_command(
      {test::built_program("test_liblocal"), "--gtest_filter=hosts_real.DISABLED_inside",
       "--gtest_also_run_disabled_tests"},
      run);
  // A sanitizer's own thread keeps a child from entering.
  if (result.status == 126) GTEST_SKIP() << "a private host cannot be entered here";
  EXPECT_EQ(0, result.status) << result.out << result.err;
}

}  // namespace
}  // namespace qvr
