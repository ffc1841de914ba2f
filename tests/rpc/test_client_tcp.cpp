// The TCP handle against servers that answer well, badly, late or not at all.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <netinet/tcp.h>

#include <cerrno>

#include "clnt_create.h"
#include "clnt_error.h"
#include "clnt_tcp.h"
#include "debug_words.h"
#include "script_server.h"

namespace qvr {
namespace {

using namespace std::chrono_literals;

std::unique_ptr<CLIENT> connect_to(const script_server &server) {
  return open_tcp(server, 390107, 6);
}

void says_nothing(served_connection &, const served_call &) {}

// What the server sends for a call; it then closes when `then_close`.
script_server::handler sends(std::function<std::string(const served_call &)> bytes,
                             bool then_close = false) {
  return [=](served_connection &to, const served_call &call) {
    to.send(bytes(call));
    to.closing = then_close;
  };
}

clnt_stat call_for_word(CLIENT &client, std::uint32_t &result,
                        std::chrono::microseconds timeout = 5s) {
  return client.call(
      57, [](XDR &xdr) { return xdr.put_u32(0x01020304); },
      [&](XDR &xdr) { return xdr.get_u32(result); }, timeout);
}

TEST(client_tcp, calls_on_the_wire) {
  for (int seconds : {0, 2}) {
    SCOPED_TRACE(seconds);
    script_server server(
        sends([](const served_call &call) { return record(reply_head(call.xid) + word(42)); }));
    int socket = -1;
    auto client = clnt_tcp_create_wait(server.address, 390107, 6, socket, 0, 0, seconds);
    ASSERT_TRUE(client) << clnt_create_error_text();
    EXPECT_EQ(fcntl(socket, F_GETFL) & O_NONBLOCK, 0);
    std::uint32_t result = 0;
    EXPECT_FALSE(client->reply_seen());
    for (int i = 0; i < 3; i++) ASSERT_EQ(call_for_word(*client, result), RPC_SUCCESS);
    EXPECT_EQ(result, 42u);
    EXPECT_TRUE(client->reply_seen());
    auto calls = server.calls();
    ASSERT_EQ(calls.size(), 3u);
    EXPECT_EQ(calls[1].raw, word(calls[0].xid - 1) + word(0) + word(2) + word(390107) + word(6) +
                                word(57) + std::string(16, '\0') + word(0x01020304));
    EXPECT_EQ(server.connections, 1);
  }
}

// Each answer of the published protocol ends in its status.
TEST(client_tcp, replies) {
  struct row {
    int line;
    std::string behind_xid;
    clnt_stat status;
    std::string text;
  };
  const std::string accepted = word(1) + word(0) + word(0) + word(0);
  const row rows[] = {
      {__LINE__, accepted + word(0) + word(42), RPC_SUCCESS, "Success"},
      {__LINE__, accepted + word(0), RPC_CANTDECODERES, "Can't decode result"},
      {__LINE__, accepted + word(1), RPC_PROGUNAVAIL, "Program unavailable"},
      {__LINE__, accepted + word(2) + word(5) + word(6), RPC_PROGVERSMISMATCH,
       "RPC program or version mismatch; low version = 5, high version = 6"},
      {__LINE__, accepted + word(3), RPC_PROCUNAVAIL, "RPC server is unavailable"},
      {__LINE__, accepted + word(4), RPC_CANTDECODEARGS, "Server can't decode arguments"},
      {__LINE__, accepted + word(5), RPC_SYSTEMERROR, "Remote system error; errno = Success"},
      {__LINE__, accepted + word(9), RPC_FAILED, "Failed (unspecified error)"},
      {__LINE__, word(1) + word(1) + word(0) + word(2) + word(2), RPC_VERSMISMATCH,
       "Incompatible versions of RPC; low version = 2, high version = 2"},
      {__LINE__, word(1) + word(1) + word(1) + word(5), RPC_AUTHERROR,
       "Authentication error; why = Client credential too weak"},
      {__LINE__, word(1) + word(1) + word(1) + word(14), RPC_AUTHERROR,
       "Authentication error; why = GSS-API context problem"},
      {__LINE__, word(1) + word(1) + word(1) + word(8), RPC_AUTHERROR,
       "Authentication error; why = Failed (unspecified error)"},
      {__LINE__, word(1) + word(1) + word(7), RPC_FAILED, "Failed (unspecified error)"},
      // A verifier above the published 400 bytes is taken.
      {__LINE__,
       word(1) + word(0) + word(30013) + counted(word(0) + counted(payload_of(2000))) + word(0) +
           word(42),
       RPC_SUCCESS, "Success"},
  };
  for (const row &r : rows) {
    SCOPED_TRACE(r.line);
    script_server server(
        sends([&](const served_call &call) { return record(word(call.xid) + r.behind_xid); }));
    auto client = connect_to(server);
    ASSERT_TRUE(client);
    std::uint32_t result = 0;
    EXPECT_EQ(call_for_word(*client, result), r.status);
    EXPECT_EQ(clnt_error_text(*client), r.text);
    EXPECT_EQ(clnt_error(*client) == nullptr, r.status == RPC_SUCCESS);
    EXPECT_EQ(client->reply_seen(), r.status == RPC_SUCCESS);
  }
}

// The server closes after every byte count of its reply: told as that, and at once.
TEST(client_tcp, cut_replies) {
  auto whole = [](std::uint32_t xid) {
    return record(reply_head(xid) + counted(payload_of(40)) + word(7), 24);
  };
  for (std::size_t cut = 0; cut < whole(0).size(); cut++) {
    SCOPED_TRACE(cut);
    script_server server(
        sends([&](const served_call &call) { return whole(call.xid).substr(0, cut); }, true));
    auto client = connect_to(server);
    ASSERT_TRUE(client);
    std::string text;
    std::uint32_t last;
    auto decode = [&](XDR &xdr) { return xdr.get_counted(text) && xdr.get_u32(last); };
    auto before = std::chrono::steady_clock::now();
    ASSERT_EQ(client->call(57, {}, decode, 30s), RPC_CANTRECV);
    EXPECT_LT(std::chrono::steady_clock::now() - before, 5s);
    EXPECT_EQ(client->last_error().error, ECONNRESET);
    std::string shown = clnt_error_text(*client, "mmdb");
    EXPECT_EQ(shown.find("mmdb: RPC receive operation failed; peer = 127.0.0.1:"), 0u) << shown;
    EXPECT_NE(shown.find(", errno = Connection reset by peer"), std::string::npos) << shown;
  }
}

// What is no part of the awaited reply does not hold the call beyond its time.
TEST(client_tcp, silence_and_noise) {
  struct row {
    int line;
    std::function<std::string(const served_call &, int round)> noise;  // until the test is over
  };
  const row rows[] = {
      {__LINE__, [](auto &, int) { return std::string(); }},
      {__LINE__, [](auto &call, int) { return record(reply_head(call.xid + 1)); }},
      // Fragments of no bytes, within a record and as records.
      {__LINE__, [](auto &, int) { return word(0) + word(0); }},
      {__LINE__, [](auto &, int) { return word(0x80000000); }},
      // The right xid before nothing that is a reply.
      {__LINE__, [](auto &call, int) { return record(word(call.xid) + word(3)); }},
      // A reply that begins and stops; one behind which only empty fragments come.
      {__LINE__,
       [](auto &call, int round) {
         return round == 0 ? record(reply_head(call.xid) + word(1)).substr(0, 12) : "";
       }},
      {__LINE__, [](auto &call,
                    int round) { return round == 0 ? word(24) + reply_head(call.xid) : word(0); }},
  };
  for (const row &r : rows) {
    SCOPED_TRACE(r.line);
    script_server server([&](served_connection &to, const served_call &call) {
      for (int round = 0; !to.stopped(); round++) {
        to.send(r.noise(call, round));
        to.stall(1ms);
      }
      to.closing = true;
    });
    auto client = connect_to(server);
    ASSERT_TRUE(client);
    std::uint32_t result;
    auto before = std::chrono::steady_clock::now();
    EXPECT_EQ(call_for_word(*client, result, 150ms), RPC_TIMEDOUT);
    auto took = std::chrono::steady_clock::now() - before;
    EXPECT_EQ(clnt_error_text(*client), "Timed out");
    EXPECT_GE(took, 140ms);
    EXPECT_LT(took, 3s);
  }
}

// Bytes of the right reply are progress, however slowly they come.
TEST(client_tcp, a_slow_reply_is_waited_for) {
  script_server server([](served_connection &to, const served_call &call) {
    std::string whole = record(reply_head(call.xid) + word(42), 4);
    for (std::size_t at = 0; at < whole.size(); at += 8) {
      to.send(std::string_view(whole).substr(at, 8));
      to.stall(60ms);
    }
  });
  auto client = connect_to(server);
  ASSERT_TRUE(client);
  std::uint32_t result = 0;
  EXPECT_EQ(call_for_word(*client, result, 200ms), RPC_SUCCESS);
  EXPECT_EQ(result, 42u);
}

// A call that gave up, wherever in its reply, does not cost the next one its own.
TEST(client_tcp, the_next_call_behind_a_reply_that_stays_out) {
  auto whole = [](std::uint32_t xid) {
    return record(reply_head(xid) + counted(payload_of(700)) + word(7), 300);
  };
  for (std::size_t cut : {0, 1, 3, 4, 5, 28, 29, 150, 304, 307, 500, 743}) {
    SCOPED_TRACE(cut);
    std::string rest;
    script_server server([&](served_connection &to, const served_call &call) {
      std::string reply = whole(call.xid);
      to.send(rest + reply.substr(0, rest.empty() ? cut : reply.size()));
      rest = reply.substr(cut);
      if (cut == 0) rest = record("");
    });
    auto client = connect_to(server);
    ASSERT_TRUE(client);
    std::string text;
    std::uint32_t last = 0;
    auto decode = [&](XDR &xdr) { return xdr.get_counted(text) && xdr.get_u32(last); };
    EXPECT_EQ(client->call(57, {}, decode, 40ms), RPC_TIMEDOUT);
    EXPECT_EQ(client->call(57, {}, decode, 5s), RPC_SUCCESS);
    EXPECT_EQ(text, payload_of(700));
    EXPECT_EQ(last, 7u);
  }
}

TEST(client_tcp, foreign_and_broken_records_are_passed_over) {
  script_server server(sends([](const served_call &call) {
    return record(reply_head(call.xid + 1) + word(1)) + record(word(call.xid) + word(9)) +
           record("") + record(word(call.xid)) + record(reply_head(call.xid) + word(42) + word(9));
  }));
  auto client = connect_to(server);
  ASSERT_TRUE(client);
  std::uint32_t result = 0;
  // What stands behind the results of one reply is gone with the next call.
  for (int i = 0; i < 2; i++) {
    ASSERT_EQ(call_for_word(*client, result), RPC_SUCCESS);
    EXPECT_EQ(result, 42u);
  }
}

// Lengths that are only claimed take no memory, and one beyond the limit ends the connection.
TEST(client_tcp, huge_lengths) {
  struct row {
    int line;
    std::uint32_t fragment, text;
    int error;
    const char *shown;
  };
  const row rows[] = {
      {__LINE__, 104857600, 0x7ffffff0, ECONNRESET, "Connection reset by peer"},
      {__LINE__, 104857601, 4, EFBIG, "File too large"},
      {__LINE__, 0x7fffffff, 4, EFBIG, "File too large"},
  };
  for (const row &r : rows) {
    SCOPED_TRACE(r.line);
    script_server server(sends(
        [&](const served_call &call) {
          return word(0x80000000 | r.fragment) + reply_head(call.xid) + word(r.text) + "abcd";
        },
        true));
    auto client = connect_to(server);
    ASSERT_TRUE(client);
    std::string text;
    auto decode = [&](XDR &xdr) { return xdr.get_counted(text); };
    debug_set_level(-1);
    EXPECT_EQ(client->call(1, {}, decode, 30s), RPC_CANTRECV);
    debug_set_level(0);
    EXPECT_LE(text.capacity(), 200000u);
    EXPECT_EQ(client->last_error().error, r.error);
    std::string shown = clnt_error_text(*client);
    EXPECT_NE(shown.find(std::string(", errno = ") + r.shown), std::string::npos) << shown;
    EXPECT_EQ(client->socket() == -1, r.error == EFBIG);
    EXPECT_EQ(client->call(1, {}, decode, 1s) == RPC_SUCCESS, false);
  }
}

TEST(client_tcp, calls_that_only_send_or_cannot_be_encoded) {
  script_server server(says_nothing);
  auto client = connect_to(server);
  ASSERT_TRUE(client);
  EXPECT_EQ(client->call(1, {}, {}, 0us), RPC_SUCCESS);
  std::uint32_t result;
  EXPECT_EQ(call_for_word(*client, result, 0us), RPC_TIMEDOUT);
  // Both went out with the second call's flush.
  for (int i = 0; i < 200 && server.calls().size() < 2; i++) std::this_thread::sleep_for(10ms);
  EXPECT_EQ(server.calls().size(), 2u);
  EXPECT_EQ(client->call(
                1, [](XDR &) { return false; }, {}, 1s),
            RPC_CANTENCODEARGS);
  auto more_exact = [&](XDR &) {
    client->set_error(RPC_CANCELLED, 0);
    return false;
  };
  EXPECT_EQ(client->call(1, more_exact, {}, 1s), RPC_CANCELLED);
  client->auth.reset();
  EXPECT_EQ(client->call(1, {}, {}, 1s), RPC_AUTHERROR);
  EXPECT_EQ(client->last_error().why, AUTH_FAILED);
}

TEST(client_tcp, the_cancel_callback_ends_a_wait) {
  struct seen_t {
    int asked = 0, over = 0;
  } seen;
  auto ask = [](const std::chrono::microseconds *elapsed, void *to) {
    auto &s = *static_cast<seen_t *>(to);
    if (elapsed == nullptr) s.over++;
    return elapsed != nullptr && ++s.asked > 3;
  };
  script_server server(says_nothing);
  for (bool forever : {false, true}) {
    auto client = connect_to(server);
    ASSERT_TRUE(client);
    seen = {};
    if (forever) client->set_no_timeout();
    ASSERT_TRUE(client->set_poll(10ms, {ask, &seen}));
    std::uint32_t result;
    EXPECT_EQ(call_for_word(*client, result), RPC_CANCELLED);
    EXPECT_EQ(seen.asked, 4);
    EXPECT_EQ(seen.over, 2) << "once after the write, once after the read";
  }
  // A process that was interrupted waits for nothing.
  auto client = connect_to(server);
  ASSERT_TRUE(client);
  debug_words.interrupted = 1;
  std::uint32_t result;
  EXPECT_EQ(call_for_word(*client, result), RPC_CANTSEND);
  EXPECT_EQ(client->last_error().error, ECONNRESET);
  debug_words.interrupted = 0;
}

// A peer that talks before it listens is drained of one word, so that both can go on.
TEST(client_tcp, peeking_while_a_write_is_blocked) {
  script_server server([](served_connection &to, const served_call &call) {
    to.send(record(reply_head(call.xid) + word(42)));
  });
  auto client = connect_to(server);
  ASSERT_TRUE(client);
  int on = 1;
  ASSERT_TRUE(client->control(CLSET_PEEK_ON_WRITE, &on));
  std::string large = payload_of(16 << 20);
  std::uint32_t result = 0;
  EXPECT_EQ(client->call(
                1, [&](XDR &xdr) { return xdr.put_bytes(large.data(), large.size()); },
                [&](XDR &xdr) { return xdr.get_u32(result); }, 10s),
            RPC_SUCCESS);
  EXPECT_EQ(result, 42u);
  ASSERT_EQ(server.calls().size(), 1u);
  EXPECT_EQ(server.calls()[0].arguments, large);
}

TEST(client_tcp, controls) {
  script_server server(says_nothing);
  auto client = connect_to(server);
  ASSERT_TRUE(client);
  int number = -1;
  // Numbers that are set and read back under another number, in this order.
  struct row {
    int line;
    unsigned set, get;
    int value;
    bool good;
    int read;
  };
  const row rows[] = {
      {__LINE__, CLSET_CLEAR_REPLY, CLGET_WAIT_MODE, 1, false, CLNT_WAIT_NONE},  // a plain channel
      {__LINE__, CLSET_ENCRYPTED, CLGET_ENCRYPTED, 1, true, 1},
      {__LINE__, CLSET_CLEAR_REPLY, CLGET_ENCRYPTED, 1, true, 1},
      {__LINE__, CLSET_WAIT_MODE, CLGET_WAIT_MODE, 7, false, CLNT_WAIT_NONE},
      {__LINE__, CLSET_WAIT_MODE, CLGET_WAIT_MODE, 1, true, CLNT_WAIT_SET},
      {__LINE__, CLSET_REPLY_SEEN, CLGET_REPLY_SEEN, 1, true, 1},
      {__LINE__, CLSET_AUTH_MASK, CLGET_AUTH_MASK, 15, true, 15},
      {__LINE__, CLSET_PROG, CLGET_PROG, 390103, true, 390103},
      {__LINE__, CLSET_NODELAY, CLGET_FD, 0, true, client->socket()},
      {__LINE__, CLSET_PEEK_ON_WRITE, CLGET_FD, 1, true, client->socket()},
      {__LINE__, CLSET_SINGLE_FRAGMENT, CLGET_FD, 1, true, client->socket()},
      {__LINE__, CLSET_RCVBUF, CLGET_RCVBUF, 50000, true, 100000},  // the kernel's share included
      {__LINE__, CLSET_SNDBUF, CLGET_SNDBUF, 50000, true, 100000},
  };
  for (const row &r : rows) {
    SCOPED_TRACE(r.line);
    number = r.value;
    EXPECT_EQ(client->control(r.set, &number), r.good);
    EXPECT_TRUE(client->control(r.get, &number));
    EXPECT_EQ(number, r.read);
  }
  std::chrono::microseconds time{1500000};
  clnt_poll_t poll;
  EXPECT_TRUE(client->control(CLSET_TIMEOUT, &time));
  EXPECT_TRUE(client->control(CLGET_POLL, &poll));
  EXPECT_EQ(poll.interval, time);
  EXPECT_TRUE(client->control(CLSET_TIMEOUT, nullptr));
  EXPECT_TRUE(client->control(CLGET_TIMEOUT, &time));
  EXPECT_EQ(time, 86400s);
  EXPECT_EQ(client->wait_mode(), CLNT_WAIT_FOREVER);
  sockaddr_storage peer;
  EXPECT_TRUE(client->control(CLGET_SERVER_ADDR, &peer));
  EXPECT_EQ(std::memcmp(&peer, &server.address, sizeof(sockaddr_in)), 0);
  XDR *stream = nullptr;
  EXPECT_TRUE(client->control(CLGET_XDRS, &stream));
  EXPECT_EQ(stream, client->stream());
  for (unsigned unknown : {0u, 4u, 5u, 7u, 10u, 40u, 68u, 70u}) {
    EXPECT_FALSE(client->control(unknown, &number)) << unknown;
  }
  EXPECT_FALSE(client->control(CLGET_TIMEOUT, nullptr));
}

TEST(client_tcp, keep_alive) {
  script_server server(says_nothing);
  struct row {
    int line;
    const char *idle, *interval, *count;  // null: unset
    std::vector<int> set;                 // empty: refused
  };
  const row rows[] = {
      {__LINE__, nullptr, nullptr, nullptr, {300, 30, 20}},
      {__LINE__, "77", "8", "9", {77, 8, 9}},
      {__LINE__, "0", nullptr, nullptr, {}},
      {__LINE__, nullptr, "12s", nullptr, {}},
      {__LINE__, nullptr, nullptr, "", {}},
  };
  for (const row &r : rows) {
    SCOPED_TRACE(r.line);
    auto client = connect_to(server);
    ASSERT_TRUE(client);
    const std::pair<const char *, const char *> variables[] = {
        {"VL_TCP_KEEPIDLE_SECS", r.idle},
        {"VL_TCP_KEEPINTVL_SECS", r.interval},
        {"VL_TCP_KEEPCNT", r.count}};
    for (auto [name, value] : variables) {
      if (value != nullptr) setenv(name, value, 1);
    }
    EXPECT_EQ(client->control(CLSET_KEEPALIVE, nullptr), !r.set.empty());
    std::vector<int> set;
    for (int option : {TCP_KEEPIDLE, TCP_KEEPINTVL, TCP_KEEPCNT}) {
      socklen_t size = sizeof option;
      getsockopt(client->socket(), IPPROTO_TCP, option, &set.emplace_back(), &size);
    }
    EXPECT_TRUE(r.set.empty() ? set[0] > 300 : set == r.set) << "all or none";
    for (auto [name, value] : variables) unsetenv(name);
  }
}

TEST(client_tcp, sockets_that_the_caller_brings) {
  script_server server(
      sends([](const served_call &call) { return record(reply_head(call.xid) + word(42)); }));
  int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  ASSERT_EQ(connect(fd, reinterpret_cast<sockaddr *>(&server.address), sizeof(sockaddr_in)), 0);
  {
    int given = fd;
    auto client = clnt_tcp_create(server.address, 1, 1, given, 0, 0);
    ASSERT_TRUE(client);
    std::uint32_t result = 0;
    EXPECT_EQ(call_for_word(*client, result), RPC_SUCCESS);
  }
  EXPECT_GE(fcntl(fd, F_GETFD), 0) << "it is the caller's still";
  close(fd);
  fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  EXPECT_FALSE(clnt_tcp_create(server.address, 1, 1, fd, 0, 0));
  EXPECT_EQ(clnt_create_err().status, RPC_SYSTEMERROR);
  EXPECT_EQ(clnt_create_err().error.error, EINVAL);
  close(fd);
}

TEST(client_tcp, refused_and_unknown) {
  sockaddr_storage nobody = nobody_there();
  for (int seconds : {0, 2}) {
    int socket = -1;
    EXPECT_FALSE(seconds == 0
                     ? clnt_tcp_create(nobody, 1, 1, socket, 0, 0, CLNT_QUIET)
                     : clnt_tcp_create_wait(nobody, 1, 1, socket, 0, 0, seconds, CLNT_QUIET));
    EXPECT_EQ(clnt_create_err().error.error, ECONNREFUSED);
    EXPECT_EQ(clnt_create_error_text("open"), "open: Remote system error - Connection refused");
    EXPECT_TRUE(err_is(clnt_create_error()->code, 2, 12));
  }
  int socket = -1;
  EXPECT_FALSE(clnt_tcp_create(nobody, 1, 1, socket, -1, 0, CLNT_QUIET));
  EXPECT_EQ(clnt_create_err().error.error, EINVAL);
}

TEST(client_tcp, ipv6_peers_show_their_port_in_brackets) {
  script_server server(sends([](const served_call &) { return std::string(); }, true), SOCK_STREAM,
                       AF_INET6);
  if (!server.good) GTEST_SKIP() << "no ::1 here";
  auto client = connect_to(server);
  ASSERT_TRUE(client);
  std::uint32_t result = 0;
  EXPECT_EQ(call_for_word(*client, result), RPC_CANTRECV);
  std::string shown = clnt_error_text(*client);
  EXPECT_NE(shown.find("; peer = ::1:["), std::string::npos) << shown;
}

TEST(client_errors, codes) {
  struct row {
    int line;
    clnt_stat status;
    int why, error;
    int number, severity;
  };
  const row rows[] = {
      {__LINE__, RPC_TIMEDOUT, 0, 0, 5, 3},     {__LINE__, RPC_PROCUNAVAIL, 0, 0, 10, 5},
      {__LINE__, RPC_SYSTEMERROR, 0, 0, 12, 4}, {__LINE__, RPC_SYSTEMERROR, 0, ETIMEDOUT, 5, 3},
      {__LINE__, RPC_AUTHERROR, 0, 0, 7, 1},    {__LINE__, RPC_AUTHERROR, 2, 0, 7, 4},
      {__LINE__, RPC_AUTHERROR, 4, 0, 7, 4},    {__LINE__, RPC_AUTHERROR, 9, 0, 7, 3},
      {__LINE__, RPC_AUTHERROR, 13, 0, 7, 3},   {__LINE__, RPC_AUTHERROR, 14, 0, 7, 3},
      {__LINE__, RPC_AUTHERROR, 5, 0, 7, 5},
  };
  for (const row &r : rows) {
    SCOPED_TRACE(r.line);
    rpc_err_t error;
    error.status = r.status;
    error.why = r.why;
    error.error = r.error;
    errobj_t *object = rpc_error_object(error);
    ASSERT_NE(object, nullptr);
    EXPECT_TRUE(err_is(object->code, 2, r.number));
    EXPECT_EQ(err_severity(object->code), r.severity);
    EXPECT_EQ(object->message.id, 76677);
  }
  EXPECT_STREQ(rpc_status_text(28), "Can't push RPC module");
  EXPECT_STREQ(rpc_status_text(30), "Unknown error code: 30");
  set_create_err(RPC_AUTHERROR, AUTH_TOOWEAK);
  EXPECT_EQ(clnt_create_error_text(), "Authentication error; why = Client credential too weak");
  clnt_create_err() = {RPC_PMAPFAILURE, {RPC_TIMEDOUT}};
  EXPECT_EQ(clnt_create_error_text("x"), "x: Port mapper failure - Timed out");
}

}  // namespace
}  // namespace qvr
