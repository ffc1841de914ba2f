#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <stdlib.h>

#include <thread>

#include "clnt_error.h"
#include "fake_resolver.h"
#include "pmap_cache.h"
#include "pmap_lookup.h"
#include "pmap_ports.h"
#include "pmap_server.h"
#include "script_server.h"

namespace qvr {
namespace {

using test::caught_messages;
using test::fake_now;
using test::fake_resolver;
using test::pmap_server;
using testing::HasSubstr;

constexpr std::uint32_t EXECD = 390113, MMD = 390104;  // cacheable, and not

class pmap_test : public testing::Test {
 protected:
  pmap_test() {
    pmap_cache_forget();
    pmap_ports_set(PMAP_NO_PORT, product.port());
  }
  ~pmap_test() override {
    unsetenv(PMAP_VARIABLE);
    pmap_cache_forget();
    pmap_ports_reset();
    pmap_set_system_hook(nullptr);
  }

  std::uint16_t look_up(std::uint32_t program, int protocol = IPPROTO_TCP,
                        unsigned flags = PMAP_PRODUCT, std::uint32_t version = 1) {
    return pmap_getport_qvr(here, program, version, protocol, flags);
  }

  fake_resolver world;
  pmap_server product{{{EXECD, 1, 6, 7937}, {EXECD, 1, 17, 7936}, {MMD, 1, 6, 8000}}};
  pmap_server system{{{MMD, 2, 6, 8100}, {EXECD, 1, 6, 8101}}};
  sockaddr_storage here = fake_resolver::address("127.0.0.1");
};

TEST_F(pmap_test, which_port_mapper_answers) {
  struct row_t {
    int line;
    std::uint32_t program, version;
    int protocol;
    unsigned flags;
    std::uint16_t port;
    clnt_stat status;
    int product_calls, system_calls;  // of two equal look-ups
  } rows[] = {
      {__LINE__, EXECD, 1, IPPROTO_TCP, PMAP_PRODUCT, 7937, RPC_SUCCESS, 1, 0},
      {__LINE__, EXECD, 1, IPPROTO_UDP, PMAP_PRODUCT, 7936, RPC_SUCCESS, 2, 0},
      {__LINE__, EXECD, 2, IPPROTO_TCP, PMAP_PRODUCT, 0, RPC_PROGNOTREGISTERED, 2, 0},
      {__LINE__, MMD, 1, IPPROTO_TCP, PMAP_PRODUCT, 8000, RPC_SUCCESS, 2, 0},
      {__LINE__, MMD, 2, IPPROTO_TCP, PMAP_PRODUCT | PMAP_SYSTEM, 8100, RPC_SUCCESS, 2, 2},
      {__LINE__, MMD, 1, IPPROTO_TCP, PMAP_PRODUCT | PMAP_SYSTEM, 8000, RPC_SUCCESS, 2, 0},
      {__LINE__, EXECD, 1, IPPROTO_TCP, PMAP_SYSTEM, 8101, RPC_SUCCESS, 0, 2},
      {__LINE__, EXECD, 1, IPPROTO_TCP, 0, 0, RPC_SUCCESS, 0, 0},
  };
  for (const row_t &row : rows) {
    SCOPED_TRACE(row.line);
    pmap_cache_forget();
    pmap_ports_set(system.port(), product.port());
    int product_calls = product.calls(), system_calls = system.calls();
    for (int i = 0; i < 2; i++) {
      clnt_create_err() = {};
      EXPECT_EQ(row.port, look_up(row.program, row.protocol, row.flags, row.version));
      if (row.port == 0) {
        EXPECT_EQ(row.status, clnt_create_err().status);
      }
    }
    EXPECT_EQ(row.product_calls, product.calls() - product_calls);
    EXPECT_EQ(row.system_calls, system.calls() - system_calls);
  }
}

TEST_F(pmap_test, failures_stand_in_the_create_error) {
  caught_messages caught;
  product.set_mood(pmap_server::mood::closes);
  EXPECT_EQ(0, look_up(EXECD));
  EXPECT_EQ(RPC_PMAPFAILURE, clnt_create_err().status);
  EXPECT_EQ(RPC_CANTRECV, clnt_create_err().error.status);
  product.set_mood(pmap_server::mood::rejects);
  EXPECT_EQ(0, look_up(EXECD));
  EXPECT_EQ(RPC_PMAPFAILURE, clnt_create_err().status);
  EXPECT_EQ(RPC_PROCUNAVAIL, clnt_create_err().error.status);
  product.set_mood(pmap_server::mood::answers);
  // Nobody is told above debug level 1.
  EXPECT_EQ("", caught.text());
  debug_set_level(1);
  EXPECT_EQ(0, look_up(EXECD, IPPROTO_TCP, PMAP_PRODUCT, 9));
  EXPECT_THAT(caught.text(), HasSubstr("RPC service 390113 (vers 9, progname qvrexecd) not "
                                       "registered on 127.0.0.1\n"));
}

TEST_F(pmap_test, a_hook_is_asked_last_of_the_system) {
  pmap_ports_set(system.port(), product.port());
  pmap_set_system_hook([](std::uint32_t program, std::uint32_t version, int protocol) {
    return static_cast<std::uint16_t>(program - 390000 + version * 1000 +
                                      static_cast<std::uint32_t>(protocol));
  });
  EXPECT_EQ(104 + 9000 + 6, look_up(MMD, IPPROTO_TCP, PMAP_SYSTEM, 9));
  EXPECT_EQ(0, look_up(MMD, IPPROTO_TCP, PMAP_PRODUCT, 9));
  EXPECT_EQ(8100, look_up(MMD, IPPROTO_TCP, PMAP_SYSTEM, 2));
}

TEST_F(pmap_test, caches_age_and_are_cleared) {
  EXPECT_EQ(7937, look_up(EXECD));
  product.set_rows({{EXECD, 1, 6, 9999}});
  fake_now += 1799;
  EXPECT_EQ(7937, look_up(EXECD));
  caught_messages caught;
  debug_set_level(7);
  fake_now += 1;
  EXPECT_EQ(9999, look_up(EXECD));
  EXPECT_THAT(caught.text(), HasSubstr("Current global pmap cache before resetting.\n"));
  debug_set_level(0);
  product.set_rows({{EXECD, 1, 6, 5555}});
  EXPECT_EQ(9999, look_up(EXECD));
  pmap_cache_clear();
  EXPECT_EQ(5555, look_up(EXECD));
  EXPECT_EQ((pmap_entry_t{EXECD, 1, 6, 5555}), pmap_last_seen(EXECD));
  // Another thread has the process's list, and with that off only its own.
  product.set_rows({{EXECD, 1, 6, 4444}});
  std::thread([&] { EXPECT_EQ(5555, look_up(EXECD)); }).join();
  pmap_cache_set_global(false);
  std::thread([&] { EXPECT_EQ(4444, look_up(EXECD)); }).join();
  EXPECT_EQ(5555, look_up(EXECD));
  pmap_cache_disable();
  EXPECT_EQ(4444, look_up(EXECD));
  product.set_rows({{EXECD, 1, 6, 3333}});
  EXPECT_EQ(3333, look_up(EXECD));
}

TEST_F(pmap_test, a_port_that_closes_between_look_up_and_connect) {
  auto port_of = [](const sockaddr_storage &address) -> std::uint64_t {
    return ntohs(reinterpret_cast<const sockaddr_in &>(address).sin_port);
  };
  product.set_rows({{EXECD, 1, 6, port_of(nobody_there())}});
  for (int wait : {0, 2}) {
    SCOPED_TRACE(wait);
    int calls = product.calls(), socket = -1;
    auto before = std::chrono::steady_clock::now();
    EXPECT_EQ(nullptr, clnt_tcp_create_wait(here, EXECD, 1, socket, 0, 0, wait, CLNT_QUIET));
    EXPECT_LT(std::chrono::steady_clock::now() - before, std::chrono::seconds(2));
    EXPECT_EQ("Remote system error - Connection refused", clnt_create_error_text());
    EXPECT_EQ(calls + 1, product.calls()) << "what was known of the port is forgotten";
  }
  // The daemon is back on another port.
  script_server back([](served_connection &, const served_call &) {});
  product.set_rows({{EXECD, 1, 6, port_of(back.address)}});
  int socket = -1;
  EXPECT_NE(nullptr, clnt_tcp_create(here, EXECD, 1, socket, 0, 0)) << clnt_create_error_text();
  // A remembered port that another address of the host has: nothing to tell.
  world.hosts["two"] = {"", {"127.0.0.2", "127.0.0.1"}, 0};
  caught_messages caught;
  EXPECT_NE(nullptr, clnt_create_simple("two", EXECD, 1, "tcp")) << clnt_create_error_text();
  EXPECT_EQ("", caught.text());
}

TEST_F(pmap_test, the_environment_of_a_child) {
  struct row_t {
    int line;
    const char *text;
    std::size_t groups;
  } rows[] = {
      {__LINE__, "", 0},
      {__LINE__, "{390113,1,6,7937}", 1},
      {__LINE__, "{390113,1,6,7937}{390107,5,6,8001}", 2},
      {__LINE__, "{390113,1,6,7937}{390107,5,6}{390103,2,6,9}", 1},
      {__LINE__, "{390113,1,6,7937} {390107,5,6,8001}", 1},
      {__LINE__, "{390113,1,6,65536}", 0},
      {__LINE__, "{390113,1,6,-1}", 0},
      {__LINE__, "{390113,1,6,7937", 0},
      {__LINE__, "{99999999999999999999,1,6,1}", 0},
      {__LINE__, "390113,1,6,7937}", 0},
  };
  for (const row_t &row : rows) {
    SCOPED_TRACE(row.line);
    std::vector<pmap_entry_t> parsed = pmap_parse(row.text);
    EXPECT_EQ(row.groups, parsed.size());
    EXPECT_EQ(parsed, pmap_parse(pmap_format(parsed)));
  }
  // Only TCP ports of cacheable programs are believed.
  setenv(PMAP_VARIABLE, "{390113,1,6,1234}{390104,1,6,1235}{390107,1,17,1236}", 1);
  pmap_cache_forget();
  EXPECT_EQ(1234, look_up(EXECD));
  EXPECT_EQ(8000, look_up(MMD));
  EXPECT_EQ(0, pmap_cache_find(390107, 1, 17));
  // And back: the newest first.
  pmap_cache_add({390107, 5, 6, 8001}, true);
  EXPECT_STREQ("{390107,5,6,8001}{390113,1,6,1234}", getenv(PMAP_VARIABLE));
  std::vector<pmap_entry_t> many(1000, {EXECD, 1, 6, 7937});
  EXPECT_LE(pmap_format(many).size(), PMAP_TEXT_MAX);
  EXPECT_GT(pmap_format(many).size(), PMAP_TEXT_MAX - 50);
}

TEST_F(pmap_test, ports_of_the_two_port_mappers) {
  struct row_t {
    int line;
    std::map<std::string, unsigned> services;
    unsigned system, product;
  } rows[] = {
      {__LINE__, {}, 65535, 7938},
      {__LINE__, {{"sunrpc", 111}}, 111, 7938},
      {__LINE__, {{"sunrpc", 111}, {"qvrrpc", 9000}}, 65535, 9000},
  };
  for (const row_t &row : rows) {
    SCOPED_TRACE(row.line);
    world.services = row.services;
    ks_set_resolver(&world);
    pmap_ports_reset();
    std::uint16_t system_port, product_port;
    pmap_ports(&system_port, &product_port);
    EXPECT_EQ(row.system, system_port);
    EXPECT_EQ(row.product, product_port);
    pmap_ports(nullptr, nullptr);
  }
}

TEST_F(pmap_test, names_of_the_services_behind_ports) {
  using enum pmap_server::mood;
  world.hosts["vault"] = {"", {"127.0.0.1"}, 0};
  const std::vector<pmap_entry_t> some = {
      {EXECD, 1, 6, 7937}, {MMD, 1, 6, 8000}, {390107, 1, 6, 8000}, {87654321, 1, 6, 8001}};
  const char *none = "before";
  struct row_t {
    int line;
    const char *host;
    std::uint16_t port;
    std::vector<pmap_entry_t> entries;
    pmap_server::mood mood;
    const char *name, *said;
  } rows[] = {
      {__LINE__, "vault", product.port(), some, closes, "portmapper", ""},
      {__LINE__, "", 7937, some, closes, "client services", ""},
      {__LINE__, "vault", 7937, some, answers, "qvrexecd", ""},
      {__LINE__, "vault", 8000, some, answers, "qvrmmdbd", ""},  // the last entry of the port
      {__LINE__, "vault", 8001, some, answers, none, ""},        // a program without a name
      {__LINE__, "vault", 1, some, answers, none, ""},
      {__LINE__,
       "vault",
       1,
       {},
       answers,
       "client services",
       "No remote programs are registered.\n"},
      {__LINE__, "vault", 1, some, closes, none, "Unable to access the QVR port mapper: "},
      {__LINE__, "nowhere", 1, some, answers, none,
       "Unable to retrieve the DNS information for host 'nowhere': "},
  };
  caught_messages caught;
  for (const row_t &row : rows) {
    SCOPED_TRACE(row.line);
    std::string text = none;
    product.set_rows(row.entries);
    product.set_mood(row.mood);
    pmap_service_name(row.host, row.port, text);
    EXPECT_EQ(row.name, text);
    std::string said = caught.text();
    EXPECT_THAT(said, HasSubstr(row.said));
    EXPECT_EQ(*row.said == '\0', said.empty());
  }
}

TEST(rpc_names, built_in_rows_come_first) {
  EXPECT_EQ(390103u, rpc_program_number("qvrd"));
  EXPECT_EQ(390113u, rpc_program_number("QVRexec"));
  EXPECT_EQ(0u, rpc_program_number("no-such-program"));
  EXPECT_STREQ("qvrexecd", rpc_program_name(390113));
  EXPECT_STREQ("qvrportmapper", rpc_program_name(100000));
  EXPECT_EQ(nullptr, rpc_program_name(3999999));
}

}  // namespace
}  // namespace qvr
