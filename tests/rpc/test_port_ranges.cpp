#include "port_ranges.h"

#include <arpa/inet.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <memory>
#include <set>

#include "fake_resolver.h"
#include "port_bind.h"

namespace qvr {
namespace {

class port_ranges_test : public testing::Test {
 protected:
  void SetUp() override { port_ranges_reset(); }
  void TearDown() override { port_ranges_reset(); }
};

TEST_F(port_ranges_test, ranges_merge) {
  using ranges_t = std::vector<std::pair<long, long>>;
  struct row_t {
    int line;
    port_range_type type;
    ranges_t added;
    std::size_t count;
    const char *text;
  } rows[] = {
      {__LINE__, PORTS_SERVICE, {}, 0, "0-0"},
      {__LINE__, PORTS_SERVICE, {{0, 0}}, 0, "0-0"},
      {__LINE__, PORTS_SERVICE, {{500, 800}}, 301, "500-800  "},
      {__LINE__, PORTS_CONNECTION, {{500, 2000}}, 977, "1024-2000  "},
      {__LINE__, PORTS_CONNECTION, {{500, 800}}, 0, "0-0"},
      {__LINE__, PORTS_CONNECTION, {{500, 1024}}, 1, "1024-1024  "},
      {__LINE__, PORTS_SERVICE, {{2000, 3000}, {3001, 4000}}, 2001, "2000-4000  "},
      {__LINE__, PORTS_SERVICE, {{3001, 4000}, {2000, 3000}}, 2001, "2000-4000  "},
      {__LINE__, PORTS_SERVICE, {{2000, 3000}, {4000, 5000}}, 2002, "4000-5000, 2000-3000  "},
      {__LINE__, PORTS_SERVICE, {{2000, 3000}, {3002, 4000}}, 2000, "3002-4000, 2000-3000  "},
      {__LINE__, PORTS_SERVICE, {{2000, 3000}, {1500, 3500}}, 2001, "1500-3500  "},
      {__LINE__, PORTS_SERVICE, {{2000, 3000}, {2500, 2600}}, 1001, "2000-3000  "},
      {__LINE__, PORTS_SERVICE, {{3000, 2000}, {-5, 10}, {1, 65536}}, 0, "0-0"},
      {__LINE__, PORTS_RESERVED, {{2000, 3000}}, 424, "600-1023  "},
  };
  for (const row_t &row : rows) {
    SCOPED_TRACE(row.line);
    port_ranges_reset();
    for (auto [low, high] : row.added) port_range_add(low, high, row.type);
    EXPECT_EQ(row.count, port_range_count(row.type));
    EXPECT_EQ(row.text, port_range_text(row.type));
  }
}

struct socket_t {
  int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  ~socket_t() { close(fd); }
  int port() const {
    sockaddr_in address = {};
    socklen_t length = sizeof address;
    getsockname(fd, reinterpret_cast<sockaddr *>(&address), &length);
    return ntohs(address.sin_port);
  }
};

// A stretch of ports that nobody uses just now.
int free_ports(int count) {
  for (int low = 21000 + getpid() % 9000; low < 32000; low += count) {
    bool all = true;
    for (int port = low; port < low + count && all; port++) {
      socket_t probe;
      sockaddr_in address = {};
      address.sin_family = AF_INET;
      address.sin_port = htons(static_cast<std::uint16_t>(port));
      all = bind(probe.fd, reinterpret_cast<sockaddr *>(&address), sizeof address) == 0;
    }
    if (all) return low;
  }
  return 0;
}

TEST_F(port_ranges_test, every_port_of_a_range_is_handed_out_once) {
  int low = free_ports(24);
  ASSERT_NE(0, low);
  // Two nodes with an excluded port between and one inside.
  port_range_add(low, low + 9, PORTS_CONNECTION);
  port_range_add(low + 11, low + 20, PORTS_CONNECTION);
  port_exclude(static_cast<std::uint16_t>(low + 5));
  EXPECT_EQ(20u, rpc_connection_range_count());
  std::vector<std::unique_ptr<socket_t>> held;
  std::set<int> ports;
  for (int i = 0; i < 19; i++) {
    held.push_back(std::make_unique<socket_t>());
    ASSERT_EQ(0, rpc_bind_from_range(held.back()->fd, AF_INET)) << i;
    ports.insert(held.back()->port());
  }
  EXPECT_EQ(19u, ports.size());
  EXPECT_EQ(0u, ports.count(low + 5));
  EXPECT_EQ(0u, ports.count(low + 10));
  EXPECT_GE(*ports.begin(), low);
  EXPECT_LE(*ports.rbegin(), low + 20);
  socket_t one_more;
  EXPECT_EQ(-1, rpc_bind_from_range(one_more.fd, AF_INET));
  EXPECT_EQ(EADDRNOTAVAIL, errno);
  for (int i = 0; i < 2; i++) port_exclude(9000);
  EXPECT_EQ(2u, rpc_port_ranges().excluded.size());
  port_ranges_reset();
  EXPECT_FALSE(port_is_excluded(9000));
  EXPECT_TRUE(port_is_excluded(7938));
}

TEST_F(port_ranges_test, tries) {
  struct row_t {
    int line;
    int low, high;
    int held;      // one socket holds each port from low on, so many
    int failures;  // "Bind attempt" lines
  } rows[] = {
      {__LINE__, 7937, 7938, 0, 0},  // both excluded: every try is skipped
      {__LINE__, 0, 0, 1, 7 + 1},
      {__LINE__, 0, 2, 3, 7 + 3},
  };
  for (const row_t &row : rows) {
    SCOPED_TRACE(row.line);
    port_ranges_reset();
    int low = row.low, high = row.high;
    std::vector<std::unique_ptr<socket_t>> held;
    if (row.held != 0) {
      low = free_ports(row.held);
      high = low + row.held - 1;
    }
    port_range_add(low, high, PORTS_CONNECTION);
    for (int i = 0; i < row.held; i++) {
      held.push_back(std::make_unique<socket_t>());
      ASSERT_EQ(0, rpc_bind_from_range(held.back()->fd, AF_INET));
    }
    test::caught_messages caught;
    debug_set_level(2);
    socket_t socket;
    EXPECT_EQ(-1, rpc_bind_from_range(socket.fd, AF_INET));
    EXPECT_EQ(EADDRNOTAVAIL, errno);
    int failures = 0;
    for (const errobj_t &error : caught.taken()) {
      failures += error.text.find("Bind attempt ") != std::string::npos ? 1 : 0;
    }
    EXPECT_EQ(row.failures, failures);
  }
}

TEST_F(port_ranges_test, without_a_range_any_port_will_do) {
  socket_t socket;
  EXPECT_EQ(0, rpc_bind_from_range(socket.fd, AF_INET));
  EXPECT_NE(0, socket.port());
  EXPECT_EQ(-1, rpc_bind_from_range(socket.fd, AF_UNIX));
  EXPECT_EQ(EPFNOSUPPORT, errno);
  port_range_add(40000, 40010, PORTS_CONNECTION);
  EXPECT_EQ(-1, rpc_bind_from_range(-1, AF_INET));  // no try helps
  EXPECT_EQ(EADDRNOTAVAIL, errno);
}

}  // namespace
}  // namespace qvr
