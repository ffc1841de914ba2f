#include "hosts.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "fake_resolver.h"
#include "fault_table.h"
#include "ks_errors.h"
#include "temp_dir.h"

namespace qvr {
namespace {

using test::caught_messages;
using test::fake_now;
using test::fake_resolver;
using testing::HasSubstr;

struct answer_t {
  int rc = 0;
  std::vector<std::string> addresses;
  std::string canonical;
  unsigned port = 0;
  int protocol = 0;
};

answer_t forward(const char *host, const char *service = nullptr, int flags = 0,
                 int family = AF_UNSPEC) {
  addrinfo hints = {};
  hints.ai_flags = flags;
  hints.ai_family = family;
  hints.ai_socktype = SOCK_STREAM;
  hints.ai_protocol = IPPROTO_TCP;
  addrinfo *found = nullptr;
  answer_t answer;
  answer.rc = ks_inet_getaddrinfo(host, service, &hints, &found);
  for (const addrinfo *at = found; at != nullptr; at = at->ai_next) {
    answer.addresses.push_back(ks_address_text(at->ai_addr));
    answer.port = ntohs(reinterpret_cast<sockaddr_in *>(at->ai_addr)->sin_port);
    answer.protocol = at->ai_protocol;
  }
  if (found != nullptr && found->ai_canonname != nullptr) answer.canonical = found->ai_canonname;
  ks_inet_freeaddrinfo(found);
  return answer;
}

struct name_t {
  int rc;
  std::string host;
};
name_t reverse(const std::string &text, int flags = NI_NAMEREQD, std::size_t size = 256) {
  sockaddr_storage address = fake_resolver::address(text);
  char host[256] = "", service[32] = "";
  int rc = ks_inet_getnameinfo(reinterpret_cast<sockaddr *>(&address), sizeof address, host, size,
                               service, sizeof service, flags);
  return {rc, host};
}

using strings = std::vector<std::string>;

TEST(hosts_forward, answers_and_their_cache) {
  fake_resolver world;
  world.hosts["mars"] = {"mars.example.com", {"10.0.0.7", "2001:db8::7"}, 0};
  world.hosts["broken"] = {"", {}, EAI_AGAIN};
  world.hosts["localhost"] = {"", {"::1", "127.0.0.1"}, 0};
  world.services["qvrd"] = 7939;
  struct row_t {
    int line;
    const char *host, *service;
    int flags;
    int rc;
    strings addresses;
    unsigned port;
    const char *canonical;
    int real_lookups;  // of two equal questions
  } rows[] = {
      {__LINE__, "mars", nullptr, 0, 0, {"10.0.0.7", "2001:db8::7"}, 0, "mars.example.com", 1},
      {__LINE__, "mars", "qvrd", 0, 0, {"10.0.0.7", "2001:db8::7"}, 7939, "mars.example.com", 1},
      {__LINE__, "mars", "none", 0, EAI_SERVICE, {}, 0, "", 2},
      {__LINE__, "venus", nullptr, 0, EAI_NONAME, {}, 0, "", 1},
      {__LINE__, "broken", nullptr, 0, EAI_AGAIN, {}, 0, "", 2},
      {__LINE__, "", nullptr, 0, 0, {"127.0.0.1"}, 0, "", 1},  // localhost, and no IPv6 here
      {__LINE__, nullptr, nullptr, AI_CANONNAME, 0, {"127.0.0.1"}, 0, "localhost", 1},
      {__LINE__, "0.0.0.0", "80", 0, 0, {"0.0.0.0"}, 80, "", 1},
      {__LINE__, "10.9.9.9", nullptr, AI_CANONNAME, 0, {"10.9.9.9"}, 0, "10.9.9.9", 1},
  };
  for (const row_t &row : rows) {
    SCOPED_TRACE(row.line);
    world.forwards = 0;
    for (int i = 0; i < 2; i++) {
      answer_t answer = forward(row.host, row.service, row.flags);
      EXPECT_EQ(row.rc, answer.rc);
      EXPECT_EQ(row.addresses, answer.addresses);
      EXPECT_EQ(row.port, answer.port);
      EXPECT_EQ(row.canonical, answer.canonical);
      EXPECT_EQ(row.rc == 0 ? IPPROTO_TCP : 0, answer.protocol);
    }
    EXPECT_EQ(row.real_lookups, world.forwards);
  }
  EXPECT_EQ(EAI_NONAME, forward("0.0.0.0", nullptr, 0, AF_INET6).rc);
}

TEST(hosts_forward, ttls_and_the_switch) {
  fake_resolver world;
  world.hosts["mars"] = {"", {"10.0.0.7"}, 0};
  ks_dns_set_ttls(100, 50);
  ks_dns_set_ttls(-1, -1);
  struct row_t {
    int line;
    const char *host;
    std::int64_t later;
    int lookups;
  } rows[] = {
      {__LINE__, "mars", 99, 1},
      {__LINE__, "mars", 100, 2},
      {__LINE__, "venus", 49, 1},
      {__LINE__, "venus", 50, 2},
  };
  for (const row_t &row : rows) {
    SCOPED_TRACE(row.line);
    world.forwards = 0;
    fake_now += 1000;
    forward(row.host);
    fake_now += row.later;
    forward(row.host);
    EXPECT_EQ(row.lookups, world.forwards);
  }
  ks_dns_enable_level1(false);
  world.forwards = 0;
  forward("mars");
  forward("mars");
  EXPECT_EQ(2, world.forwards);
}

TEST(hosts_forward, an_address_that_the_system_refuses_is_asked_by_its_name) {
  fake_resolver world;
  world.hosts["10.1"] = {"", {}, EAI_FAIL};  // an old form of 10.0.0.1
  EXPECT_EQ(EAI_FAIL, forward("10.1").rc);   // banned
  ks_set_rdns_state("uncached");
  world.hosts["vault.example.com"] = {"", {"10.0.0.1"}, 0};
  EXPECT_EQ(strings{"10.0.0.1"}, forward("10.1").addresses);
  EXPECT_EQ(EAI_FAIL, forward("10.1", nullptr, AI_NUMERICHOST).rc);
  // Without a name the text itself is asked once more.
  world.names.clear();
  world.forwards = 0;
  ks_dns_enable_level1(false);
  EXPECT_EQ(EAI_FAIL, forward("10.1").rc);
  EXPECT_EQ(2, world.forwards);
}

TEST(hosts_reverse, states_and_cache) {
  struct row_t {
    int line;
    const char *state;
    const char *address;
    int flags;
    int rc;
    const char *host;
    int lookups;  // of two equal questions
  } rows[] = {
      {__LINE__, "banned", "10.0.0.1", NI_NAMEREQD, EAI_FAIL, "", 0},
      {__LINE__, "banned", "10.0.0.1", NI_NUMERICHOST, 0, "10.0.0.1", 2},
      {__LINE__, "Uncached", "10.0.0.1", NI_NAMEREQD, 0, "vault.example.com", 2},
      {__LINE__, "CACHED", "10.0.0.1", NI_NAMEREQD, 0, "vault.example.com", 1},
      {__LINE__, "cached", "10.0.0.2", NI_NAMEREQD, EAI_NONAME, "", 1},
      {__LINE__, "cached", "10.0.0.2", 0, 0, "10.0.0.2", 1},
      {__LINE__, "cached", "::ffff:10.0.0.1", NI_NAMEREQD, 0, "vault.example.com", 1},
      {__LINE__, "cached", "fe80::1:2:3:4", NI_NAMEREQD, EAI_NONAME, "", 0},
      {__LINE__, "cached", "fe80::1", 0, 0, "fe80::0:0:0:1", 0},
      {__LINE__, "cached", "febf:9::a:b:c:d", 0, 0, "fe80::a:b:c:d", 0},
      {__LINE__, "cached", "fec0::1", 0, 0, "fec0::1", 1},
  };
  for (const row_t &row : rows) {
    SCOPED_TRACE(row.line);
    fake_resolver world;
    EXPECT_TRUE(ks_set_rdns_state(row.state));
    for (int i = 0; i < 2; i++) {
      name_t name = reverse(row.address, row.flags);
      EXPECT_EQ(row.rc, name.rc);
      if (row.rc == 0) {
        EXPECT_EQ(row.host, name.host);
      }
    }
    EXPECT_EQ(row.lookups, world.reverses);
  }
  fake_resolver world;
  ks_set_rdns_state("cached");
  world.reverse_error = EAI_AGAIN;  // not kept
  reverse("10.0.0.2");
  EXPECT_EQ(EAI_AGAIN, reverse("10.0.0.2").rc);
  EXPECT_EQ(2, world.reverses);
  EXPECT_EQ(EAI_OVERFLOW, reverse("10.0.0.1", NI_NAMEREQD, 5).rc);
  EXPECT_EQ(EAI_OVERFLOW, reverse("10.0.0.1", NI_NAMEREQD, 5).rc);
}

TEST(hosts_reverse, removal_of_a_client) {
  fake_resolver world;
  ks_set_rdns_state("cached");
  reverse("10.0.0.1");
  EXPECT_EQ(KS_OK, ks_inet_remove_client("VAULT.example.com"));
  EXPECT_EQ(KS_ENOENT, ks_inet_remove_client("vault.example.com"));
  reverse("10.0.0.1");
  EXPECT_EQ(2, world.reverses);
}

TEST(hosts_reverse, words_of_the_state) {
  fake_resolver world;
  caught_messages caught;
  struct row_t {
    int line;
    const char *word;
    std::int32_t id;
    const char *text;
  } rows[] = {
      {__LINE__, nullptr, 208159, "Invalid Reverse DNS state 'NULL' selected.\n"},
      {__LINE__, "often", 208160, "Invalid Reverse DNS state 'often' selected.\n"},
  };
  for (const row_t &row : rows) {
    SCOPED_TRACE(row.line);
    ks_set_rdns_state("cached");
    caught.taken();
    EXPECT_FALSE(ks_set_rdns_state(row.word));
    EXPECT_EQ(KS_RDNS_CACHED, ks_get_rdns_state());
    std::vector<errobj_t> said = caught.taken();
    ASSERT_EQ(1u, said.size());
    EXPECT_EQ(row.id, said[0].message.id);
    EXPECT_EQ(14022, said[0].code);
    EXPECT_EQ(row.text, said[0].text);
  }
}

class hosts_faults : public testing::Test {
 protected:
  hosts_faults() { setenv("QVR_FAULT_TABLE", directory_.file("rdlr").c_str(), 1); }
  ~hosts_faults() override { unsetenv("QVR_FAULT_TABLE"); }
  void write(const std::string &text) { directory_.write("rdlr", text); }

  temp_dir directory_;
};

TEST_F(hosts_faults, simulated_failures) {
  write(
      "dnslu MARS sim_error\n"
      "rdnslu 10.0.0.8 sim_error\n"
      "rdnslu 10.0.0.9 pluto\n"
      "rdnslu * same_ip\n"
      "rdnslu 10.0.0.1 never.seen\n");
  fake_resolver world;
  world.hosts["mars"] = {"", {"10.0.0.7"}, 0};
  ks_set_rdns_state("cached");
  caught_messages caught;
  debug_set_level(7);
  for (int i = 0; i < 2; i++) EXPECT_EQ(EAI_FAIL, forward("mars").rc);
  EXPECT_THAT(caught.text(), HasSubstr("\tfc[2]: f1='rdnslu' f2='10.0.0.9' f3='pluto'\n"));
  EXPECT_EQ(0, world.forwards);
  EXPECT_EQ(EAI_FAIL, reverse("10.0.0.8").rc);
  EXPECT_EQ("pluto", reverse("10.0.0.9").host);
  EXPECT_EQ("10.0.0.1", reverse("10.0.0.1").host);
  EXPECT_EQ(0, world.reverses);
  // Read once: what the file says later counts for the next process.
  write("");
  EXPECT_EQ(EAI_FAIL, forward("mars").rc);
}

TEST(hosts_fault_table, lines) {
  std::string lines(FAULT_LINES_MAX + 10, '\n');
  std::string many;
  for (std::size_t i = 0; i < FAULT_LINES_MAX + 10; i++) many += "dnslu h sim_error\n";
  struct row_t {
    int line;
    std::string text;
    std::size_t kept;
  } rows[] = {
      {__LINE__, "", 0},
      {__LINE__, "dnslu a sim_error", 1},
      {__LINE__, "  rdnslu\t*\tsame_ip  \r\n", 1},
      {__LINE__, "dnslu a\ndnslu a b c\n# dnslu a b\nlookup a b\n", 0},
      {__LINE__, "dnslu a " + std::string(2 * FAULT_LINE_MAX, 'x'), 1},
      {__LINE__, std::string("dnslu a\0b sim_error\n", 20), 1},
      {__LINE__, lines, 0},
      {__LINE__, many, FAULT_LINES_MAX},
  };
  caught_messages caught;
  debug_set_level(7);
  for (const row_t &row : rows) {
    SCOPED_TRACE(row.line);
    std::vector<fault_t> faults = fault_table_parse(row.text);
    EXPECT_EQ(row.kept, faults.size());
    for (const fault_t &fault : faults) EXPECT_LE(fault.effect.size(), FAULT_LINE_MAX);
  }
  std::string told = caught.text();
  EXPECT_THAT(told, HasSubstr("exceeds max"));
  EXPECT_THAT(told, HasSubstr("non-configuration line ... ignoring '# dnslu a b'"));
}

TEST(hosts_reports, slow_lookups) {
  struct row_t {
    int line;
    int threshold;
    std::int64_t takes;
    const char *host;
    bool hints;
    const char *text;
  } rows[] = {
      {__LINE__, 5, 5, "vault", true, ""},
      {__LINE__, 0, 60, "vault", true, ""},
      {__LINE__, 5, 6, "vault", true,
       "Successful forward DNS lookup of host vault, service <null> with hints ai_flags 0002, "
       "ai_family 2, ai_socktype 1, ai_protocol 6 took 6 seconds\n"},
      {__LINE__, 5, 7, "venus", false,
       "Failed forward DNS lookup of host venus, service <null> with no hints took 7 seconds\n"},
  };
  for (const row_t &row : rows) {
    SCOPED_TRACE(row.line);
    fake_resolver world;
    caught_messages caught;
    debug_flags.log_dns_threshold = row.threshold;
    world.takes = row.takes;
    addrinfo hints = {};
    hints.ai_flags = AI_CANONNAME;
    hints.ai_family = AF_INET;
    hints.ai_socktype = SOCK_STREAM;
    hints.ai_protocol = IPPROTO_TCP;
    addrinfo *found = nullptr;
    ks_inet_getaddrinfo(row.host, nullptr, row.hints ? &hints : nullptr, &found);
    ks_inet_freeaddrinfo(found);
    EXPECT_EQ(row.text, caught.text());
  }
  fake_resolver world;
  ks_set_rdns_state("uncached");
  caught_messages caught;
  world.takes = 9;
  reverse("10.0.0.1");
  EXPECT_EQ("Successful DNS lookup of address 10.0.0.1 with flags 0008 took 9 seconds\n",
            caught.text());
  debug_flags.log_dns_threshold = 0;
}

TEST(hosts_addresses, texts_and_kinds) {
  struct row_t {
    int line;
    const char *address;
    const char *text;
    bool loopback, local;
  } rows[] = {
      {__LINE__, "10.0.0.1", "10.0.0.1", false, false},
      {__LINE__, "::ffff:10.0.0.1", "10.0.0.1", false, false},
      {__LINE__, "127.9.9.9", "127.9.9.9", true, true},
      {__LINE__, "128.0.0.1", "128.0.0.1", false, false},
      {__LINE__, "::ffff:127.0.0.1", "127.0.0.1", true, true},
      {__LINE__, "::1", "::1", true, true},
      {__LINE__, "::2", "::2", false, false},
      {__LINE__, "192.168.5.5", "192.168.5.5", false, true},
      {__LINE__, "::ffff:192.168.5.5", "192.168.5.5", false, true},
      {__LINE__, "fe80::77", "fe80::77", false, true},
  };
  fake_resolver world;
  world.interface_addresses = {"127.0.0.1", "192.168.5.5", "fe80::77"};
  ks_set_resolver(&world);
  for (const row_t &row : rows) {
    SCOPED_TRACE(row.line);
    sockaddr_storage address = fake_resolver::address(row.address, 9);
    auto *plain = reinterpret_cast<sockaddr *>(&address);
    EXPECT_EQ(row.text, ks_address_text(plain));
    EXPECT_EQ(row.loopback, ks_is_loopback(plain));
    EXPECT_EQ(row.local, ks_is_local_address(plain));
    for (int i = 0; i < 2; i++) EXPECT_EQ(row.local, ks_address_is_local_cached(plain));
  }
  sockaddr_storage none = {};
  none.ss_family = AF_UNIX;
  EXPECT_EQ("", ks_address_text(reinterpret_cast<sockaddr *>(&none)));
  EXPECT_FALSE(ks_is_local_address(reinterpret_cast<sockaddr *>(&none)));
}

TEST(hosts_local, ipv6_needs_an_interface_and_a_socket) {
  struct row_t {
    int line;
    strings interfaces;
    bool sockets;
    bool capable;
    strings localhost;
  } rows[] = {
      {__LINE__, {"127.0.0.1", "::1"}, true, true, {"::1", "127.0.0.1"}},
      {__LINE__, {"127.0.0.1", "::1"}, false, false, {"127.0.0.1"}},
      {__LINE__, {"127.0.0.1", "2001:db8::1"}, true, false, {"127.0.0.1"}},
  };
  for (const row_t &row : rows) {
    SCOPED_TRACE(row.line);
    fake_resolver world;
    world.hosts["localhost"] = {"", {"::1", "127.0.0.1"}, 0};
    world.interface_addresses = row.interfaces;
    world.ipv6 = row.sockets;
    ks_set_resolver(&world);
    EXPECT_EQ(row.capable, ks_ipv6_capable());
    EXPECT_EQ(row.localhost, forward("localhost").addresses);
  }
}

TEST(hosts_local, own_name) {
  char name[256];
  {
    fake_resolver world;
    world.own_name = "VAULT";
    world.hosts["vault"].canonical = "Vault.Example.COM";
    EXPECT_STREQ("vault.example.com", ks_getlocalhost(name, sizeof name));
    EXPECT_STREQ("vaul", ks_getlocalhost(name, 5));
    EXPECT_EQ("vault.example.com", msg_host());
    world.own_name = "other";
    EXPECT_STREQ("vault.example.com", ks_getlocalhost(name, sizeof name));
  }
  fake_resolver world;
  world.own_name = "";
  EXPECT_STREQ("localhost", ks_getlocalhost(name, sizeof name));
  char one[1];
  int rc = ks_getdomainname(one, sizeof one);
  if (rc != 0) {
    EXPECT_EQ(ERANGE, errno);
  }
}

TEST(hosts_local_death_test, an_unresolvable_own_name_ends_the_process) {
  testing::FLAGS_gtest_death_test_style = "threadsafe";
  EXPECT_EXIT(
      {
        fake_resolver world;
        world.own_name = "Nowhere";
        char name[64];
        ks_getlocalhost(name, sizeof name);
      },
      testing::ExitedWithCode(1),
      ": Failed to resolve hostname nowhere to an internet address. Please verify a mapping for "
      "nowhere exists in the /etc/hosts file or DNS.");
}

}  // namespace
}  // namespace qvr
