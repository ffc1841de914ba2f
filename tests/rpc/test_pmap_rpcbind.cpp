// Service location against the operating system's own port mapper.
#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include "clnt_create.h"
#include "clnt_error.h"
#include "fake_resolver.h"
#include "pmap_cache.h"
#include "pmap_lookup.h"
#include "pmap_ports.h"
#include "pmap_protocol.h"
#include "run_command.h"

namespace qvr {
namespace {

constexpr std::uint16_t SYSTEM_PORT = 111;
constexpr std::uint32_t PMAPPROC_SET = 1;

sockaddr_storage loopback(unsigned port) {
  return test::fake_resolver::address("127.0.0.1", port);
}

bool enter(const pmap_entry_t &entry) {
  int socket = -1;
  auto client = clnt_udp_create(loopback(SYSTEM_PORT), PMAP_PROGRAM, PMAP_VERSION,
                                std::chrono::seconds(2), socket);
  if (client == nullptr) return false;
  bool done = false;
  client->call(
      PMAPPROC_SET, [&](XDR &xdr) { return xdr_put_pmap(xdr, entry); },
      [&](XDR &xdr) { return xdr.get_bool(done); }, std::chrono::seconds(10));
  return done;
}

// Runs inside the private host.
TEST(pmap_rpcbind, DISABLED_inside) {
  ASSERT_TRUE(enter({390109, 2, IPPROTO_TCP, 7939})) << clnt_create_error_text();
  ASSERT_TRUE(enter({390104, 3, IPPROTO_UDP, 7940}) && enter({390113, 1, IPPROTO_TCP, 7941}));
  std::uint16_t system_port, product_port;
  pmap_ports(&system_port, &product_port);
  EXPECT_EQ(SYSTEM_PORT, system_port);
  EXPECT_EQ(PMAP_PRODUCT_PORT, product_port);
  struct row_t {
    int line;
    std::uint32_t program, version;
    int protocol;
    unsigned flags;
    std::uint16_t port;
  } rows[] = {
      {__LINE__, 390109, 2, IPPROTO_TCP, PMAP_SYSTEM, 7939},
      // Nobody listens on the product port mapper's port: the system's is the second choice.
      {__LINE__, 390109, 2, IPPROTO_TCP, PMAP_PRODUCT | PMAP_SYSTEM, 7939},
      {__LINE__, 390109, 2, IPPROTO_TCP, PMAP_PRODUCT, 0},
      {__LINE__, 390104, 3, IPPROTO_UDP, PMAP_SYSTEM, 7940},
      {__LINE__, 390104, 3, IPPROTO_TCP, PMAP_SYSTEM, 0},
      {__LINE__, 100000, 2, IPPROTO_TCP, PMAP_SYSTEM, SYSTEM_PORT},
  };
  for (const row_t &row : rows) {
    SCOPED_TRACE(row.line);
    EXPECT_EQ(row.port,
              pmap_getport_qvr(loopback(0), row.program, row.version, row.protocol, row.flags));
  }
  // And its list, for the names of services.
  pmap_ports_set(PMAP_NO_PORT, SYSTEM_PORT);
  std::string text;
  pmap_service_name("127.0.0.1", 7940, text);
  EXPECT_EQ("qvrmmd", text);
  // An address that the layer takes for another host's: the caches are neither read nor written,
  // but with nobody to ask what they hold is better than nothing.
  test::fake_resolver world;
  sockaddr_storage there = test::fake_resolver::address("10.77.0.1");
  auto ask = [&](unsigned flags) { return pmap_getport_qvr(there, 390113, 1, IPPROTO_TCP, flags); };
  EXPECT_EQ(7941, ask(PMAP_PRODUCT));
  EXPECT_EQ(0, pmap_cache_find(390113, 1, IPPROTO_TCP));
  pmap_cache_add({390113, 1, IPPROTO_TCP, 7777});
  EXPECT_EQ(7941, ask(PMAP_PRODUCT));
  EXPECT_EQ(7777, ask(0));
  EXPECT_EQ(7777, pmap_cache_find(390113, 1, IPPROTO_TCP));
}

TEST(pmap_rpcbind, answers_as_the_system_port_mapper) {
  const char *program = "/usr/sbin/rpcbind";
  if (access(program, X_OK) != 0) GTEST_SKIP() << "rpcbind is missing";
  test::private_host_options options;
  options.set_file("/etc/services", "sunrpc 111/tcp portmapper\nsunrpc 111/udp portmapper\n");
  options.empty_directories = {"/run"};
  options.addresses = {"10.77.0.1"};
  std::string why;
  auto host = test::private_host::make(options, why);
  if (host == nullptr) GTEST_SKIP() << why;
  test::command_options run;
  run.host = host.get();
  test::background_command rpcbind({program, "-f", "-i"}, run);
  std::vector<std::string> asks = {test::built_program("test_rpc"),
                                   "--gtest_filter=pmap_rpcbind.DISABLED_inside",
                                   "--gtest_also_run_disabled_tests"};
  // It says nothing when it listens.
  test::command_result result;
  for (int i = 0; i < 20; i++) {
    usleep(200000);
    result = test::run_command({"/usr/sbin/rpcinfo", "-p", "127.0.0.1"}, run);
    if (result.status == 0) break;
  }
  if (result.status != 0) {
    GTEST_SKIP() << "rpcbind does not run here: " << result.err << rpcbind.stop().err;
  }
  result = test::run_command(asks, run);
  EXPECT_EQ(0, result.status) << result.out << result.err;
}

}  // namespace
}  // namespace qvr
