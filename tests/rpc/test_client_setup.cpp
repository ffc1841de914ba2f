// How handles are made: names and rounds, connects, buffers, modes, messages; and replies on an
// encrypted channel.
#include <fcntl.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <map>

#include "clnt_create.h"
#include "clnt_error.h"
#include "clnt_tcp.h"
#include "fake_resolver.h"
#include "kstr_auth.h"
#include "pmap_cache.h"
#include "pmap_ports.h"
#include "port_ranges.h"
#include "rpc_state.h"
#include "script_server.h"
#include "socket_buffers.h"
#include "tcp_connect.h"

namespace qvr {
namespace {

using namespace std::chrono_literals;

// The xid of a call that the test's cipher made: a length and the XORed bytes.
std::uint32_t sealed_xid(const served_call &call) {
  std::string xid = call.raw.substr(4, 4);
  for (char &byte : xid) byte = static_cast<char>(byte ^ 0x5a);
  return XDR::load32(reinterpret_cast<const std::uint8_t *>(xid.data()));
}

TEST(encrypted_channel, one_reply_in_plain_and_the_next_one_enciphered) {
  int calls = 0;
  script_server server([&](served_connection &to, const served_call &call) {
    std::string reply = reply_head(sealed_xid(call)) + word(static_cast<std::uint32_t>(++calls));
    if (calls == 1) to.send(record(reply));
    if (calls == 2) to.send(test_cipher::fragment(reply, true));
    if (calls == 3) to.send(record(reply).substr(0, 10));
    to.closing = calls >= 3;
  });
  auto client = open_tcp(server);
  ASSERT_TRUE(client);
  test_cipher cipher;
  ASSERT_TRUE(client->stream()->crypt_on(cipher.ops()));
  ASSERT_TRUE(client->set_encrypted());
  std::uint32_t result = 0;
  auto decode = [&](XDR &xdr) { return xdr.get_u32(result); };
  ASSERT_TRUE(client->set_clear_reply());
  EXPECT_EQ(client->call(1, {}, decode, 5s), RPC_SUCCESS);
  EXPECT_TRUE(client->stream()->encrypted()) << "taken up again";
  EXPECT_EQ(client->call(1, {}, decode, 5s), RPC_SUCCESS);
  EXPECT_EQ(result, 2u);
  // However such a call ends, nothing goes out in plain behind it.
  ASSERT_TRUE(client->set_clear_reply());
  EXPECT_EQ(client->call(1, {}, decode, 5s), RPC_CANTRECV);
  int encrypted = cipher.encrypted;
  EXPECT_NE(client->call(1, {}, decode, 5s), RPC_SUCCESS);
  EXPECT_TRUE(client->stream()->encrypted() || cipher.encrypted == encrypted);
}

// Bytes of a ciphertext are progress although none of them can be used before the last.
TEST(encrypted_channel, a_slow_ciphertext_is_waited_for) {
  script_server server([&](served_connection &to, const served_call &call) {
    std::string reply = test_cipher::fragment(reply_head(sealed_xid(call)), false) +
                        test_cipher::fragment(counted(payload_of(1 << 18)), true);
    for (std::size_t at = 0; at < reply.size(); at += 1 << 16) {
      to.send(std::string_view(reply).substr(at, 1 << 16));
      to.stall(100ms);
    }
  });
  auto client = open_tcp(server);
  ASSERT_TRUE(client);
  test_cipher cipher;
  ASSERT_TRUE(client->stream()->crypt_on(cipher.ops()));
  std::string got;
  EXPECT_EQ(client->call(
                1, {}, [&](XDR &xdr) { return xdr.get_counted(got); }, 300ms),
            RPC_SUCCESS);
  EXPECT_EQ(got, payload_of(1 << 18));
}

TEST(create_by_host, addresses_and_rounds) {
  script_server server([](served_connection &to, const served_call &call) {
    to.send(record(reply_head(call.xid)));
  });
  std::uint16_t port = ntohs(reinterpret_cast<sockaddr_in &>(server.address).sin_port);
  test::fake_resolver resolver;
  resolver.interface_addresses = {"127.0.0.1", "127.0.0.2"};
  resolver.hosts["localhost"] = {"", {"127.0.0.1"}, 0};
  resolver.hosts["vault"] = {"", {"127.0.0.1"}, 0};
  resolver.hosts["gone"] = {"", {"127.0.0.2"}, 0};
  struct row {
    int line;
    const char *host, *protocol;
    bool multi_subnet;
    clnt_stat status;
    std::string waits;  // what the debug lines say of them
    std::chrono::seconds timeout;
  };
  const row rows[] = {
      {__LINE__, "", "", false, RPC_SUCCESS, "", 30s},
      {__LINE__, "LOOPBACK", "TCP", false, RPC_SUCCESS, "", 30s},
      {__LINE__, "vault", "tcp", true, RPC_SUCCESS, "", 30s},
      {__LINE__, "nowhere", "tcp", false, RPC_UNKNOWNHOST, "", 0s},
      {__LINE__, "vault", "Tcp4", false, RPC_UNKNOWNPROTO, "", 0s},
      {__LINE__, "gone", "tcp", false, RPC_SYSTEMERROR, "", 0s},
      {__LINE__, "gone", "tcp", true, RPC_SYSTEMERROR, "4. 8. ", 0s},
  };
  for (const row &r : rows) {
    SCOPED_TRACE(r.line);
    // The look-up is answered by the cache, which a refused connection empties.
    pmap_cache_forget();
    pmap_cache_add({KSTR_PROGRAM, 1, IPPROTO_TCP, port});
    rpc_set_multi_subnet(r.multi_subnet, 3);
    test::caught_messages caught;
    debug_set_mask(1u << 4);
    auto client = clnt_create_host(r.host, KSTR_PROGRAM, 1, r.protocol, 0, 0, CLNT_QUIET);
    debug_set_mask(0);
    std::string said = caught.text(), waits;
    for (std::size_t at = 0; (at = said.find("Next wait time ", at)) != std::string::npos;) {
      at += 15;
      waits += said.substr(at, said.find('\n', at) - at) + " ";
    }
    EXPECT_EQ(waits, r.waits);
    EXPECT_EQ(client != nullptr, r.status == RPC_SUCCESS);
    if (client) {
      EXPECT_EQ(client->timeout(), r.timeout);
    } else {
      EXPECT_EQ(clnt_create_err().status, r.status);
    }
  }
  rpc_set_multi_subnet(false, 0);
  pmap_cache_forget();
}

// What connect(2) answers, one after the other, the last for ever; and on what it was called.
struct connect_script {
  static constexpr int late_refusal = -1;  // EALREADY, and a failure when it comes to its end
  static inline std::vector<int> answers;
  static inline std::vector<std::uint32_t> scopes;
  static inline std::size_t calls;

  static void start(std::vector<int> given) {
    answers = std::move(given);
    scopes.clear();
    calls = 0;
  }
  static int connect(int socket, const sockaddr *address, socklen_t length) {
    int answer = answers[std::min(calls++, answers.size() - 1)];
    if (address->sa_family == AF_INET6) {
      scopes.push_back(reinterpret_cast<const sockaddr_in6 *>(address)->sin6_scope_id);
    }
    if (answer == late_refusal) {
      fcntl(socket, F_SETFL, O_NONBLOCK);
      ks_connect(socket, address, length);
      answer = EALREADY;
    }
    errno = answer;
    return answer == 0 ? 0 : -1;
  }
};

TEST(connecting, what_each_failure_leads_to) {
  struct row {
    int line;
    std::vector<int> answers;
    bool named;  // the address has a name
    int error;   // 0: connected
    std::size_t calls;
    std::vector<std::int32_t> messages;
  };
  const row rows[] = {
      {__LINE__, {EINTR, EINTR, 0}, false, 0, 3, {}},
      {__LINE__, {EISCONN}, false, 0, 1, {}},
      {__LINE__, {EALREADY}, false, 0, 1, {}},
      {__LINE__, {connect_script::late_refusal}, false, EALREADY, 1, {173680, 172088}},
      {__LINE__, {EADDRINUSE, EADDRINUSE, 0}, false, 0, 3, {}},
      // Twice as often as the range has ports.
      {__LINE__, {EADDRINUSE}, false, EADDRINUSE, 2 * 60, {173680, 172088}},
      {__LINE__, {ECONNREFUSED}, false, ECONNREFUSED, 1, {173680, 172088, 173677}},
      {__LINE__, {ETIMEDOUT}, false, ETIMEDOUT, 1, {173680, 172088, 173678}},
      {__LINE__, {EHOSTUNREACH}, false, EHOSTUNREACH, 1, {173680, 172088, 173678}},
      {__LINE__, {ENETUNREACH}, false, ENETUNREACH, 1, {173680, 172088}},
      // The name of the service is asked of the port mapper, which is not there.
      {__LINE__, {ENETUNREACH}, true, ENETUNREACH, 1, {173680, 172082, 172089}},
  };
  tcp_connect_t request;
  request.address = nobody_there();
  request.connect = connect_script::connect;
  pmap_ports_set(PMAP_NO_PORT, ntohs(reinterpret_cast<sockaddr_in &>(request.address).sin_port));
  reinterpret_cast<sockaddr_in &>(request.address).sin_port ^= htons(1);
  port_range_add(30000, 30059, PORTS_CONNECTION);
  for (const row &r : rows) {
    SCOPED_TRACE(r.line);
    for (bool quiet : {false, true}) {
      test::fake_resolver resolver;
      resolver.hosts["near"] = {"", {"127.0.0.1"}, 0};
      resolver.names["127.0.0.1"] = "near";
      ks_set_rdns_state(r.named ? "uncached" : "banned");
      test::caught_messages caught;
      connect_script::start(r.answers);
      pmap_cache_add({KSTR_PROGRAM, 1, IPPROTO_TCP, 7937});
      request.quiet = quiet;
      int socket = tcp_connect(request);
      EXPECT_EQ(socket >= 0, r.error == 0);
      if (socket >= 0) close(socket);
      EXPECT_EQ(connect_script::calls, r.calls);
      EXPECT_TRUE(r.error == 0 || clnt_create_err().error.error == r.error);
      // A refused connection empties the caches, a port mapper's too.
      EXPECT_EQ(pmap_cache_find(KSTR_PROGRAM, 1, IPPROTO_TCP) == 0,
                r.error == ECONNREFUSED || (r.named && !quiet));
      std::vector<std::int32_t> ids;
      for (const errobj_t &message : caught.taken()) ids.push_back(message.message.id);
      EXPECT_EQ(ids, quiet ? std::vector<std::int32_t>() : r.messages);
    }
  }
  port_ranges_reset();
  pmap_ports_reset();
  pmap_cache_forget();
}

// A link-local address is tried on every link that has IPv6; elsewhere it is taken as it stands.
TEST(connecting, link_local_scopes) {
  struct row {
    int line;
    const char *address;
    std::vector<std::string> interfaces;  // with the indices 1, 2, 3 ...
    std::vector<int> answers;
    std::vector<std::uint32_t> scopes;
  };
  const std::vector<std::string> links = {"127.0.0.1", "fe80::1", "10.0.0.1", "2001:db8::1"};
  const row rows[] = {
      {__LINE__, "fe80::5", links, {EHOSTUNREACH, 0}, {2, 4}},
      {__LINE__, "febf::5", links, {0}, {2}},
      {__LINE__, "fe80::5", links, {EHOSTUNREACH}, {2, 4}},
      {__LINE__, "fe80::5", {"127.0.0.1"}, {EHOSTUNREACH}, {0}},
      {__LINE__, "fec0::5", links, {EHOSTUNREACH}, {0}},
  };
  for (const row &r : rows) {
    SCOPED_TRACE(r.line);
    test::fake_resolver resolver;
    resolver.interface_addresses = r.interfaces;
    connect_script::start(r.answers);
    tcp_connect_t request;
    request.address = test::fake_resolver::address(r.address, 9);
    request.connect = connect_script::connect;
    request.quiet = true;
    int socket = tcp_connect(request);
    if (socket < 0 && clnt_create_err().error.error == EAFNOSUPPORT) GTEST_SKIP() << "no IPv6 here";
    EXPECT_EQ(socket >= 0, r.answers.back() == 0);
    if (socket >= 0) close(socket);
    EXPECT_EQ(connect_script::scopes, r.scopes);
  }
}

// A listener whose queue is full does not say so: the connect ends with its time.
TEST(connecting, a_peer_that_does_not_answer) {
  sockaddr_storage address = test::fake_resolver::address("127.0.0.1");
  socklen_t size = sizeof(sockaddr_in);
  auto *plain = reinterpret_cast<sockaddr *>(&address);
  std::vector<int> sockets = {socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)};
  ASSERT_EQ(bind(sockets[0], plain, size), 0);
  ASSERT_TRUE(listen(sockets[0], 0) == 0 && getsockname(sockets[0], plain, &size) == 0);
  for (int i = 0; i < 3; i++) {
    sockets.push_back(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    (void)!connect(sockets.back(), plain, size);
  }
  test::fake_resolver resolver;
  test::caught_messages caught;
  int given = -1;
  auto before = std::chrono::steady_clock::now();
  EXPECT_FALSE(clnt_tcp_create_wait(address, 1, 1, given, 0, 0, 1));
  auto took = std::chrono::steady_clock::now() - before;
  EXPECT_GE(took, 900ms);
  EXPECT_LT(took, 4s);
  EXPECT_EQ(clnt_create_error_text(), "Remote system error - Connection timed out");
  EXPECT_TRUE(err_is(clnt_create_error()->code, 2, 5)) << "which is a time-out";
  std::string said = caught.text();
  for (const char *part : {"Timeout in select() - Cancelling!\n",
                           "Check whether the firewall is blocking the client ports on the host "
                           "'127.0.0.1'.\n"}) {
    EXPECT_NE(said.find(part), std::string::npos) << said;
  }
  for (int fd : sockets) close(fd);
}

TEST(socket_buffers, defaults_by_the_environment) {
  struct row {
    int line;
    std::map<std::string, const char *> variables;
    int send, receive;  // -1: what a fresh socket decides
  };
  const row rows[] = {
      {__LINE__, {}, -1, -1},
      {__LINE__, {{"QVR_SOCK_BUF_UNSET", "yes"}, {"QVR_SOCK_BUF_SIZE", "5000"}}, 0, 0},
      {__LINE__, {{"QVR_SOCK_BUF_UNSET", "no"}, {"QVR_SOCK_BUF_SIZE", "5000"}}, 5000, 5000},
      {__LINE__, {{"QVR_SOCK_BUF_SIZE", "5000"}, {"QVR_SOCK_RECVBUF_SIZE", "7000"}}, 5000, 7000},
      {__LINE__, {{"QVR_SOCK_SENDBUF_SIZE", "6000"}}, 6000, -1},
      {__LINE__, {{"QVR_SOCK_BUF_SIZE", "-1"}, {"QVR_SOCK_SENDBUF_SIZE", "0"}}, -1, -1},
  };
  auto fresh = [](int option) {
    int fd = socket(AF_INET, SOCK_STREAM, 0), size = 0;
    socklen_t length = sizeof size;
    getsockopt(fd, SOL_SOCKET, option, &size, &length);
    close(fd);
    return size <= 262144 ? 262144 : 0;
  };
  for (const row &r : rows) {
    SCOPED_TRACE(r.line);
    auto sizes = socket_buffer_defaults([&](const char *name) -> const char * {
      auto at = r.variables.find(name);
      return at != r.variables.end() ? at->second : nullptr;
    });
    EXPECT_EQ(sizes.send, r.send == -1 ? fresh(SO_SNDBUF) : r.send);
    EXPECT_EQ(sizes.receive, r.receive == -1 ? fresh(SO_RCVBUF) : r.receive);
  }
}

// With each mode, a handle without a time-out and one with it get their answers.
TEST(blocking_mode, words_and_sockets) {
  EXPECT_EQ(rpc_io_mode_from("must", RPC_IO_TRUE), RPC_IO_MUST);
  EXPECT_EQ(rpc_io_mode_from("False", RPC_IO_TRUE), RPC_IO_FALSE);
  EXPECT_EQ(rpc_io_mode_from("maybe", RPC_IO_MUST), RPC_IO_MUST);
  struct row {
    int line;
    rpc_io_mode mode;
    bool forever, peek, cancel;
    bool blocking;
  };
  const row rows[] = {
      {__LINE__, RPC_IO_TRUE, false, false, false, false},
      {__LINE__, RPC_IO_TRUE, true, false, false, true},
      {__LINE__, RPC_IO_TRUE, true, true, false, true},
      {__LINE__, RPC_IO_TRUE, true, false, true, false},
      {__LINE__, RPC_IO_FALSE, true, false, false, true},
      {__LINE__, RPC_IO_FALSE, true, true, false, false},
      {__LINE__, RPC_IO_MUST, false, false, false, true},
      {__LINE__, RPC_IO_MUST, true, true, true, true},
  };
  script_server server([](served_connection &to, const served_call &call) {
    to.stall(5ms);
    to.send(record(reply_head(call.xid)));
  });
  rpc_io_mode before = get_rpc_io_mode();
  for (const row &r : rows) {
    SCOPED_TRACE(r.line);
    set_rpc_io_mode(r.mode);
    auto client = open_tcp(server);
    ASSERT_TRUE(client);
    auto &handle = dynamic_cast<clnt_tcp &>(*client);
    handle.set_peek_on_write(r.peek);
    if (r.cancel) {
      client->set_poll(1ms, {[](const std::chrono::microseconds *, void *) { return false; }, 0});
    }
    if (r.forever) client->set_no_timeout();
    EXPECT_EQ(client->call(1, {}, {}, 5s), RPC_SUCCESS);
    EXPECT_EQ(handle.transport().blocking_state, r.blocking ? 1 : 0);
  }
  set_rpc_io_mode(before);
}

}  // namespace
}  // namespace qvr
