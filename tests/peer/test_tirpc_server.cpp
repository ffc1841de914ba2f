// The client handles against a server of the published RPC library.
#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>

#include <optional>
#include <string>

#include "clnt_create.h"
#include "clnt_error.h"
#include "fragment_proxy.h"
#include "kstr_auth.h"
#include "tirpc_peer.h"

namespace qvr {
namespace {

using namespace std::chrono_literals;

std::unique_ptr<CLIENT> open_handle(std::uint16_t port, bool udp, int send_size = 0) {
  sockaddr_storage address = {};
  auto &v4 = reinterpret_cast<sockaddr_in &>(address);
  v4.sin_family = AF_INET;
  v4.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  v4.sin_port = htons(port);
  int socket = -1;
  return udp ? clnt_udp_create(address, test::TIRPC_PROGRAM, test::TIRPC_VERSION, 1s, socket, 65000,
                               65000)
             : clnt_tcp_create(address, test::TIRPC_PROGRAM, test::TIRPC_VERSION, socket, send_size,
                               0);
}

// What goes there and comes back, whatever the fragments of both ways.
TEST(tirpc_server, echoes) {
  struct row {
    int line;
    bool udp;
    std::size_t fragment;    // 0: as each end makes them
    unsigned server_buffer;  // the size of the fragments that it sends
    int send_size;           // of those that go to it
    std::vector<std::size_t> sizes;
  };
  const std::size_t large = 3 << 20;
  const row rows[] = {
      {__LINE__, true, 0, 0, 0, {0, 1, 8000}},
      {__LINE__, false, 0, 0, 0, {0, 1, 3, 4, 3999, 7999, 8000, 8001, 1 << 20}},
      {__LINE__, false, 0, 100, 100, {0, 90, 100, 5000, 100000}},
      {__LINE__, false, 1, 0, 0, {0, 1, 100000}},
      {__LINE__, false, 3, 0, 0, {0, 1, 100000}},
      {__LINE__, false, 4, 0, 0, {0, 1, 100000}},
      {__LINE__, false, 4097, 0, 0, {1, large}},
      {__LINE__, false, 65536, 0, 0, {1, large}},
      {__LINE__, false, 1 << 20, 0, 0, {1, large}},
  };
  for (const row &r : rows) {
    test::tirpc_server server(r.udp, r.server_buffer);
    ASSERT_NE(server.port(), 0);
    std::optional<test::fragment_proxy> proxy;
    if (r.fragment != 0) proxy.emplace(server.port(), r.fragment);
    auto client = open_handle(proxy ? proxy->port() : server.port(), r.udp, r.send_size);
    ASSERT_TRUE(client) << clnt_create_error_text();
    ASSERT_NE(clnt_bind_auth(*client, "localhost", nullptr, "localhost", false), nullptr);
    for (std::size_t size : r.sizes) {
      SCOPED_TRACE(testing::Message() << r.line << " size " << size);
      std::string sent = payload_of(size), got;
      ASSERT_EQ(client->call(
                    test::TIRPC_ECHO, [&](XDR &xdr) { return xdr.put_counted(sent); },
                    [&](XDR &xdr) { return xdr.get_counted(got); }, 20s),
                RPC_SUCCESS)
          << clnt_error_text(*client);
      EXPECT_TRUE(got == sent);
    }
    EXPECT_EQ(client->call(77, {}, {}, 20s), RPC_PROCUNAVAIL);
    EXPECT_EQ(client->call(test::TIRPC_NULL, {}, {}, 20s), RPC_SUCCESS);
  }
}

TEST(tirpc_server, refuses_what_it_does_not_have) {
  test::tirpc_server server;
  auto client = open_handle(server.port(), false);
  ASSERT_TRUE(client);
  std::uint32_t other = test::TIRPC_PROGRAM + 1;
  ASSERT_TRUE(client->control(CLSET_PROG, &other));
  EXPECT_EQ(client->call(0, {}, {}, 20s), RPC_PROGUNAVAIL);
  auto refuse = [](XDR &xdr) { return xdr.put_u32(0xfffffff0); };
  other = test::TIRPC_PROGRAM;
  ASSERT_TRUE(client->control(CLSET_PROG, &other));
  EXPECT_EQ(client->call(test::TIRPC_ECHO, refuse, {}, 20s), RPC_CANTDECODEARGS);
}

}  // namespace
}  // namespace qvr
