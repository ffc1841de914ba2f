// The host layer on the system's own resolver, in a machine that has names of its own.
#include <gtest/gtest.h>
#include <linux/filter.h>
#include <linux/ipv6.h>
#include <linux/seccomp.h>
#include <sys/syscall.h>

#include <cstddef>

#include "host_seams.h"
#include "hosts.h"
#include "run_command.h"

namespace qvr {
namespace {

// As on a machine without IPv6: no ::1, and no socket of that family. For this process to its end.
bool take_ipv6_away() {
  int fd = socket(AF_INET6, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  if (fd >= 0) {
    in6_ifreq loopback = {};
    loopback.ifr6_addr = in6addr_loopback;
    loopback.ifr6_prefixlen = 128;
    loopback.ifr6_ifindex = static_cast<int>(if_nametoindex("lo"));
    ioctl(fd, SIOCDIFADDR, &loopback);
    close(fd);
  }
  constexpr std::uint32_t call = offsetof(seccomp_data, nr), family = offsetof(seccomp_data, args);
  sock_filter rules[] = {
      BPF_STMT(BPF_LD | BPF_W | BPF_ABS, call),
      BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SYS_socket, 0, 3),
      BPF_STMT(BPF_LD | BPF_W | BPF_ABS, family),
      BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, AF_INET6, 0, 1),
      BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | EAFNOSUPPORT),
      BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
  };
  sock_fprog program = {static_cast<unsigned short>(std::size(rules)), rules};
  return prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0 &&
         prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &program) == 0;
}

// Runs inside the private host.
TEST(hosts_real, DISABLED_inside) {
  bool ipv6 = getenv("HOSTS_REAL_WITHOUT_IPV6") == nullptr;
  ASSERT_TRUE(ipv6 || take_ipv6_away());
  EXPECT_TRUE(ipv6 || !ks_ipv6_capable());
  char name[256];
  EXPECT_STREQ("vault.example.com", ks_getlocalhost(name, sizeof name));
  ks_client_set_inactive("retired");
  ks_set_virtual_host_test([](const char *host) {
    return std::strcmp(host, "virtual") == 0 || std::strcmp(host, "floating.example.com") == 0;
  });
  struct row_t {
    int line;
    const char *name;
    bool local_when_banned, local;
  } rows[] = {
      {__LINE__, nullptr, true, true},
      {__LINE__, "localhost", true, true},
      {__LINE__, "localhost6", true, true},
      {__LINE__, "Loopback", true, true},
      {__LINE__, "localhost.localdomain", true, true},
      {__LINE__, "localhost6.localdomain6", true, true},
      {__LINE__, "ip6-localhost", true, true},
      {__LINE__, "IP6-LOOPBACK", true, true},
      {__LINE__, "127.0.0.1", true, true},
      {__LINE__, "::1", true, true},
      {__LINE__, "vault", true, true},
      {__LINE__, "VAULT.example.com", true, true},
      {__LINE__, "10.77.0.1", true, true},
      {__LINE__, "backup", true, true},     // an alias in the hosts file
      {__LINE__, "retired", false, false},  // another one, of a client that is not active
      {__LINE__, "vault-b", false, true},   // the second interface
      {__LINE__, "10.77.0.2", false, true},
      {__LINE__, "mars", false, false},
      {__LINE__, "192.0.2.9", false, false},
      {__LINE__, "nobody.example.com", false, false},
      // Virtual hosts of a cluster, by a name that nobody resolves and by an address.
      {__LINE__, "virtual", true, true},
      {__LINE__, "192.0.2.11", false, true},
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
  options.addresses = {"10.77.0.1", "10.77.0.2"};
  options.set_file("/etc/hosts",
                   "127.0.0.1 localhost\n"
                   "10.77.0.1 vault.example.com vault backup retired\n"
                   "10.77.0.2 vault-b\n"
                   "192.0.2.9 mars.example.com mars\n"
                   "192.0.2.11 floating.example.com\n");
  for (const char *family : {"HOSTS_REAL_WITHOUT_IPV6", "HOSTS_REAL_WITHOUT_IPV6=1"}) {
    SCOPED_TRACE(family);
    std::string why;
    auto host = test::private_host::make(options, why);
    if (host == nullptr) GTEST_SKIP() << why;
    test::command_options run;
    run.host = host.get();
    run.env.push_back(family);
    test::command_result result = test::run_command(
        {test::built_program("test_liblocal"), "--gtest_filter=hosts_real.DISABLED_inside",
         "--gtest_also_run_disabled_tests"},
        run);
    // A sanitizer's own thread keeps a child from entering.
    if (result.status == 126) GTEST_SKIP() << "a private host cannot be entered here";
    EXPECT_EQ(0, result.status) << result.out << result.err;
  }
}

}  // namespace
}  // namespace qvr
