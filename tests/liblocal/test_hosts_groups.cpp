#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <thread>

#include "fake_resolver.h"
#include "host_table.h"
#include "hosts.h"
#include "ks_errors.h"

namespace qvr {
namespace {

using test::caught_messages;
using test::fake_now;
using test::fake_resolver;
using testing::HasSubstr;
using testing::Not;

// A host with two interfaces, the second of which has a name of its own, and a neighbour.
struct network : fake_resolver {
  network() {
    hosts["vault.example.com"] = {"vault.example.com", {"10.0.0.1"}, 0};
    hosts["vault-b"] = {"vault-b", {"10.0.1.1"}, 0};
    hosts["mars"] = {"mars", {"10.0.0.7"}, 0};
    hosts["twin"] = {"twin", {"10.0.0.7"}, 0};
    hosts["nameless"] = {"nameless", {"10.0.0.99"}, 0};
    names["10.0.1.1"] = "vault-b";
    names["10.0.0.7"] = "mars";
    names["127.0.0.1"] = "localhost";
    interface_addresses = {"127.0.0.1", "10.0.0.1", "10.0.1.1"};
    ks_set_resolver(this);
    ks_set_rdns_state("cached");
  }
};

TEST(hosts_groups, a_failed_name_costs_nothing_until_its_time_is_up) {
  network world;
  ks_dns_enable_level1(false);
  ks_is_local_host("mars");  // this host's group is there now
  world.forwards = 0;
  for (int i = 0; i < 3; i++) EXPECT_FALSE(ks_is_local_host("nobody"));
  EXPECT_EQ(1, world.forwards);
  fake_now += 1799;
  EXPECT_FALSE(ks_is_local_host("nobody"));
  EXPECT_EQ(1, world.forwards);
  fake_now += 1;
  EXPECT_FALSE(ks_is_local_host("nobody"));
  EXPECT_EQ(2, world.forwards);
}

TEST(hosts_groups, what_is_told) {
  struct row_t {
    int line;
    const char *name;
    const char *state;
    int level;
    const char *text;
  } rows[] = {
      {__LINE__, "nobody", "cached", 1, "Forward DNS lookup failed for nobody: "},
      {__LINE__, "nameless", "cached", 9, "Reverse DNS lookup failed for 10.0.0.99: "},
      {__LINE__, "nameless", "cached", 1, "DNS cache lookup failed for \"nameless\": \""},
      {__LINE__, "mars", "cached", 9,
       "Adding cache entry for ip_address: \"10.0.0.7\"\tHost: \"mars\"\n"},
      {__LINE__, "mars", "banned", 1,
       "Caching of all nics for this host not done due to reverse DNS lookups being banned.\n"},
      {__LINE__, "10.0.0.99", "cached", 0, "Unable to determine the name of address '10.0.0.99': "},
      {__LINE__, "10.0.0.99", "banned", 1, "Unable to determine the name of address '10.0.0.99': "},
  };
  for (const row_t &row : rows) {
    SCOPED_TRACE(row.line);
    network world;
    ks_set_rdns_state(row.state);
    caught_messages caught;
    debug_set_level(row.level);
    ks_is_local_host(row.name);
    EXPECT_THAT(caught.text(), HasSubstr(row.text));
    if (row.level == 0) continue;
    // One level lower it stays untold.
    network quiet;
    ks_set_rdns_state(row.state);
    caught.taken();
    debug_set_level(row.level - 1);
    ks_is_local_host(row.name);
    EXPECT_THAT(caught.text(), Not(HasSubstr(row.text)));
  }
}

TEST(hosts_groups, inactive_clients_are_not_looked_up) {
  network world;
  ks_client_set_inactive("Mars");
  EXPECT_TRUE(ks_client_is_inactive("mars"));
  caught_messages caught;
  debug_set_level(7);
  world.forwards = 0;
  EXPECT_FALSE(ks_is_local_host("mars"));
  EXPECT_EQ(1, world.forwards);  // this host's own name
  EXPECT_THAT(caught.text(),
              HasSubstr("DEBUG: Host mars is a retired or decommissioned client.Skipping the DNS "
                        "lookup.\n"));
}

TEST(hosts_groups, virtual_hosts_of_a_cluster) {
  network world;
  ks_set_virtual_host_test([](const char *name) { return std::string(name) == "mars"; });
  EXPECT_TRUE(ks_is_local_host("mars"));
  EXPECT_TRUE(ks_is_local_host("10.0.0.7"));
  EXPECT_FALSE(ks_is_local_host("nameless"));
  ks_set_virtual_host_test(nullptr);
}

TEST(hosts_groups, clients_and_same_host) {
  network world;
  world.forwards = 0;
  EXPECT_EQ("", ks_client_primary_of("mars"));
  EXPECT_EQ(KS_OK, ks_client_add_alias("mars", "mars.example.com"));
  EXPECT_EQ(KS_OK, ks_client_add_alias("mars", "red"));
  EXPECT_EQ("mars", ks_client_primary_of("RED"));
  EXPECT_EQ("mars", ks_client_primary_of("mars"));
  EXPECT_TRUE(ks_same_host("red", "mars.example.com"));
  EXPECT_TRUE(ks_same_host("nobody", "NOBODY"));
  EXPECT_FALSE(ks_same_host("red", "venus"));
  EXPECT_TRUE(ks_same_host("localhost", "vault.example.com"));
  EXPECT_FALSE(ks_same_host("localhost", "mars"));
  // The hosts table answers for machines, never for clients, and looks nothing up for this.
  EXPECT_FALSE(ks_same_host("vault-b", "vault.example.com"));
  ks_is_local_host("vault-b");
  EXPECT_TRUE(ks_same_host("vault-b", "vault.example.com"));
  EXPECT_EQ("", ks_client_primary_of("vault-b"));
  EXPECT_EQ("vault.example.com", ks_host_primary_of("10.0.1.1"));
  EXPECT_EQ("", ks_host_primary_of("10.0.0.7"));
  fake_now += 1800;
  EXPECT_EQ("", ks_client_primary_of("red"));
}

TEST(hosts_groups, flush_and_print) {
  network world;
  ks_is_local_host("mars");
  ks_client_add_alias("venus", "evening");
  ks_client_set_inactive("pluto");
  caught_messages caught;
  ks_dns_print();
  EXPECT_EQ("", caught.text());  // at the next look-up
  ks_client_primary_of("x");
  std::string text = caught.text();
  for (const char *part :
       {"DNS (level I) cache:\n",
        "hostname: mars, address: 10.0.0.7, ai_flags: 0x0002, family: inet, protocol: tcp\n",
        "hostname: mars, service: , address: 10.0.0.7, ni_flags 0x0008\n",
        "DNS (level II) cache:\n", "Clients cache:\nSize: 2 clients:\n",
        "Inactive Client's cache: (Clients in Retired or Decommissioned state)\n", "pluto"}) {
    EXPECT_THAT(text, HasSubstr(part));
  }
  EXPECT_EQ(0, debug_flags.print_dns_cache);
  world.forwards = 0;
  ks_dns_flush();
  EXPECT_EQ("", ks_client_primary_of("evening"));
  EXPECT_EQ(0, debug_flags.flush_dns_cache);
  EXPECT_FALSE(ks_is_local_host("mars"));
  EXPECT_EQ(2, world.forwards);  // mars and this host
}

TEST(hosts_groups, many_threads_ask_one_table) {
  network world;
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; t++) {
    threads.emplace_back([t] {
      for (int i = 0; i < 50; i++) {
        EXPECT_TRUE(ks_is_local_host("vault-b"));
        EXPECT_FALSE(ks_is_local_host(t % 2 == 0 ? "mars" : "twin"));
        if (i % 16 == t) ks_dns_flush();
      }
    });
  }
  for (std::thread &thread : threads) thread.join();
}

class host_table_test : public testing::Test {
 protected:
  void SetUp() override {
    fake_now = 1'000'000;
    ks_set_clock([] { return fake_now.load(); });
  }
  void TearDown() override { ks_set_clock(nullptr); }
  static std::string group_of(const host_table_t &table, const char *text) {
    const host_entry_t *entry = table.find(text);
    if (entry == nullptr) return "-";
    std::string group;
    for (entry = entry->primary; entry != nullptr; entry = entry->next) group += entry->text + " ";
    return group;
  }
};

TEST_F(host_table_test, groups_join_and_take_from_each_other) {
  using groups_t = std::vector<std::vector<std::string>>;
  struct row_t {
    int line;
    groups_t stored;
    const char *asked, *group;
    const char *other, *other_group;
  } rows[] = {
      {__LINE__, {{"1", "a", "b"}}, "B", "1 a b ", "c", "-"},
      {__LINE__, {{"1", "a"}, {"1", "c"}}, "c", "1 a c ", "a", "1 a c "},
      {__LINE__, {{"1", "a", "b"}, {"2", "a"}}, "a", "2 a ", "b", "-"},
      {__LINE__, {{"1", "a"}, {"1", "1", "a"}}, "a", "1 a ", "1", "1 a "},
      {__LINE__, {{"1", "a"}, {"a", "1", "b"}}, "b", "1 a b ", "1", "1 a b "},
  };
  for (const row_t &row : rows) {
    SCOPED_TRACE(row.line);
    host_table_t table(4096);
    std::string failed;
    for (const auto &texts : row.stored) EXPECT_NE(nullptr, table.store(texts, 100, failed));
    EXPECT_EQ(row.group, group_of(table, row.asked));
    EXPECT_EQ(row.other_group, group_of(table, row.other));
  }
  // A second store renews the whole group.
  host_table_t table(4096);
  std::string failed;
  table.store({"1", "a"}, 100, failed);
  fake_now += 60;
  table.store({"1"}, 100, failed);
  fake_now += 60;
  EXPECT_EQ("1 a ", group_of(table, "a"));
  fake_now += 40;
  EXPECT_EQ("-", group_of(table, "a"));
}

TEST_F(host_table_test, the_array_grows_to_its_limit_and_then_drops_groups) {
  host_table_t table(3000);
  std::string failed;
  host_entry_t *self = table.store({"self", "zz-self"}, 10, failed);
  table.set_self(self);
  auto name = [](int i) { return "h" + std::to_string(1000000 + i); };
  for (int i = 0; i < 1020; i++) ASSERT_NE(nullptr, table.store({name(i)}, 100, failed));
  EXPECT_EQ(1024u, table.capacity());
  table.store({name(1020)}, 100, failed);
  EXPECT_EQ(2048u, table.capacity());
  for (int i = 1021; i < 2995; i++) {
    // Some in the middle live shorter.
    ASSERT_NE(nullptr, table.store({name(i)}, i >= 2000 && i < 2050 ? 20 : 100, failed));
  }
  EXPECT_EQ(3000u, table.capacity());
  EXPECT_EQ(2997u, table.count());
  fake_now += 30;  // this host's group is past its time as well, and is spared
  table.store({name(9000), name(9001), name(9002), name(9003)}, 100, failed);
  EXPECT_EQ(3000u, table.capacity());
  EXPECT_EQ(self, table.self());
  EXPECT_EQ("zz-self", table.entries().back()->text);
  // First the 50 whose time was up, then the first in order.
  EXPECT_EQ("-", group_of(table, name(2000).c_str()));
  EXPECT_EQ("-", group_of(table, name(0).c_str()));
  EXPECT_NE("-", group_of(table, name(100).c_str()));
  EXPECT_NE("-", group_of(table, name(2994).c_str()));
  EXPECT_EQ(name(9000) + " " + name(9001) + " " + name(9002) + " " + name(9003) + " ",
            group_of(table, name(9003).c_str()));
}

TEST_F(host_table_test, dropped_entries_make_room_first) {
  host_table_t table(4096);
  std::string failed;
  for (int i = 0; i < 1022; i++) {
    table.store({"h" + std::to_string(i)}, 100, failed);
  }
  for (int i = 0; i < 200; i++) table.drop(table.find("h" + std::to_string(i)));
  EXPECT_EQ(200u, table.dropped());
  table.store({"new"}, 100, failed);
  EXPECT_EQ(1024u, table.capacity());
  EXPECT_EQ(0u, table.dropped());
  EXPECT_EQ(823u, table.count());
  // A dropped text comes back to life when it is stored again.
  table.drop(table.find("new"));
  EXPECT_EQ(nullptr, table.find("new"));
  table.store_failure("new", 100);
  EXPECT_EQ(HOST_FAILED, table.find("new")->state);
  EXPECT_EQ(0u, table.dropped());
}

TEST_F(host_table_test, a_full_table_without_room_keeps_nothing_of_the_group) {
  host_table_t table(1024);
  std::string failed;
  std::vector<std::string> all;
  for (int i = 0; i < 1022; i++) all.push_back("s" + std::to_string(i));
  table.set_self(table.store(all, 100, failed));  // a group that is spared
  std::vector<std::string> texts = {"a", "b", "c", "d"};
  EXPECT_EQ(nullptr, table.store(texts, 100, failed));
  EXPECT_EQ("c", failed);
  for (const std::string &text : texts) EXPECT_EQ(nullptr, table.find(text));
}

}  // namespace
}  // namespace qvr
