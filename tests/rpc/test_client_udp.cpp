// The UDP handle: repeats, foreign datagrams, time-outs.
#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>

#include "clnt_create.h"
#include "clnt_error.h"
#include "script_server.h"

namespace qvr {
namespace {

using namespace std::chrono_literals;

std::unique_ptr<CLIENT> open_udp(const script_server &server, std::chrono::microseconds retry,
                                 int send_size = CLNT_UDP_SIZE) {
  int socket = -1;
  return clnt_udp_create(server.address, 100000, 2, retry, socket, send_size);
}

TEST(client_udp, answers) {
  struct row {
    int line;
    int ignored_requests;  // datagrams that the server leaves without an answer
    std::vector<std::string> noise;
    std::string behind_xid;
    clnt_stat status;
  };
  const std::string head = word(1) + word(0) + word(0) + word(0) + word(0);
  const row rows[] = {
      {__LINE__, 0, {}, head + word(42), RPC_SUCCESS},
      {__LINE__, 2, {}, head + word(42), RPC_SUCCESS},
      {__LINE__, 0, {"", "abc", word(1) + head + word(9)}, head + word(42), RPC_SUCCESS},
      {__LINE__, 0, {}, head, RPC_CANTDECODERES},
      {__LINE__, 0, {}, word(1), RPC_CANTDECODERES},
      {__LINE__, 0, {}, word(1) + word(1) + word(1) + word(2), RPC_AUTHERROR},
      {__LINE__, 1000, {}, "", RPC_TIMEDOUT},
  };
  for (const row &r : rows) {
    SCOPED_TRACE(r.line);
    int left = r.ignored_requests;  // the server thread's alone
    std::atomic<script_server *> self{nullptr};
    script_server server(
        [&](served_connection &, const served_call &call) {
          if (left-- > 0) return;
          for (const std::string &bytes : r.noise) self.load()->send_datagram(bytes);
          self.load()->send_datagram(word(call.xid) + r.behind_xid);
        },
        SOCK_DGRAM);
    self = &server;
    auto client = open_udp(server, 40ms);
    ASSERT_TRUE(client) << clnt_create_error_text();
    std::uint32_t result = 0;
    EXPECT_EQ(client->call(
                  3, [](XDR &xdr) { return xdr.put_u32(7); },
                  [&](XDR &xdr) { return xdr.get_u32(result); }, 400ms),
              r.status);
    EXPECT_EQ(result, r.status == RPC_SUCCESS ? 42u : 0u);
    auto calls = server.calls();
    ASSERT_FALSE(calls.empty());
    EXPECT_EQ(calls.front().arguments, word(7));
    EXPECT_EQ(calls.front().xid, calls.back().xid) << "repeats keep their xid";
    if (r.status == RPC_TIMEDOUT) {
      EXPECT_GE(calls.size(), 5u);
    } else {
      EXPECT_GT(calls.size(), static_cast<std::size_t>(r.ignored_requests));
    }
  }
}

TEST(client_udp, limits) {
  script_server server([](served_connection &, const served_call &) {}, SOCK_DGRAM);
  auto client = open_udp(server, 10ms, 100);
  ASSERT_TRUE(client);
  std::string large(100, 'x');
  EXPECT_EQ(client->call(
                1, [&](XDR &xdr) { return xdr.put_counted(large); }, {}, 100ms),
            RPC_CANTENCODEARGS);
  EXPECT_EQ(client->call(1, {}, {}, 0us), RPC_TIMEDOUT) << "sent, and not waited for";
  client->set_timeout(50ms);
  auto before = std::chrono::steady_clock::now();
  EXPECT_EQ(client->call(1, {}, {}, 60s), RPC_TIMEDOUT) << "the handle's time counts";
  EXPECT_LT(std::chrono::steady_clock::now() - before, 5s);
  std::chrono::microseconds retry{0};
  EXPECT_TRUE(client->control(CLGET_RETRY_TIMEOUT, &retry));
  EXPECT_EQ(retry, 10ms);
  int wrong = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  int given = wrong;
  EXPECT_FALSE(clnt_udp_create(server.address, 1, 1, 10ms, given));
  EXPECT_EQ(clnt_create_err().error.error, EINVAL);
  close(wrong);
}

}  // namespace
}  // namespace qvr
