// The session: connecting, its two retries, the forced reconnect and the classes of errors.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <thread>

#include "fake_server.h"
#include "hosts.h"
#include "queries.h"

namespace qvr {
namespace {

using testing::ElementsAre;

errobj_t error_of(std::int32_t code, std::string_view text) {
  errobj_t error;
  error.code = code;
  error.text = text;
  return error;
}

fake_answer answer_status(clnt_stat status) {
  return {status, {}};
}

int last_code() {
  errobj_t *error = mif_last_error();
  return error != nullptr ? error->code : 0;
}

// Connecting with and without the flag that gives up early.
TEST(session, connect) {
  errobj_t refused = error_of(25007, "not allowed"), unknown = error_of(25013, "no such host"),
           down = error_of(25003, "refused");
  using log_t = std::vector<std::string>;
  struct {
    int line;
    bool noretry;
    std::deque<fake_server::refusal_t> refusals;
    std::deque<clnt_stat> pings;
    int result;
    int number;  // of the last error
    log_t log;
  } rows[] = {
      {__LINE__, true, {}, {}, MIF_CONNECTED, 0, {"connect server", "ping"}},
      {__LINE__, true, {{refused, false}}, {}, -1, 7, {"connect server"}},
      {__LINE__, true, {{down, true}}, {}, -1, 3, {"connect server"}},
      {__LINE__, true, {{unknown, true}}, {}, -1, 13, {"connect server"}},
      {__LINE__, false, {{unknown, false}}, {}, -1, 13, {"connect server"}},
      // The authentication has pauses of its own, a refused connection has not.
      {__LINE__,
       false,
       {{refused, false}, {down, true}},
       {},
       MIF_CONNECTED,
       0,
       {"connect server", "connect server", "sleep 5000", "connect server", "ping"}},
      // Silence is asked five times, any other failure once.
      {__LINE__,
       true,
       {},
       {5, RPC_TIMEDOUT},
       -1,
       5,
       {"connect server", "ping", "sleep 2500", "ping", "sleep 2500", "ping", "sleep 2500", "ping",
        "sleep 2500", "ping"}},
      {__LINE__,
       true,
       {},
       {RPC_TIMEDOUT, RPC_SUCCESS},
       MIF_CONNECTED,
       0,
       {"connect server", "ping", "sleep 2500", "ping"}},
      {__LINE__, true, {}, {RPC_CANTRECV}, -1, 4, {"connect server", "ping"}},
      {__LINE__,
       false,
       {},
       {RPC_PROGVERSMISMATCH},
       MIF_CONNECTED,
       0,
       {"connect server", "ping", "sleep 5000", "connect server", "ping"}},
  };
  for (auto &row : rows) {
    SCOPED_TRACE(row.line);
    fake_server server;
    mif_set_noretry(row.noretry);
    server.refusals = row.refusals;
    server.pings = row.pings;
    EXPECT_EQ(mif_connect(), row.result);
    EXPECT_EQ(err_number(last_code()), row.number);
    EXPECT_EQ(server.log, row.log);
    EXPECT_EQ(server.connections, row.result == MIF_CONNECTED ? 1 : 0);
  }
}

TEST(session, unknown_host_is_told_by_name) {
  fake_server server;
  server.refusals = {{error_of(25013, "no such host"), false}, {error_of(25013, "x"), true}};
  for (const char *name : {"server", ""}) {
    mif_set_server(name);
    EXPECT_EQ(mif_connect(), -1);
    errobj_t *error = mif_last_error();
    ASSERT_NE(error, nullptr);
    EXPECT_EQ(error->code, 25013);
    EXPECT_EQ(error->message.id, 87927);
    EXPECT_EQ(error->text,
              "Media database server host `" + std::string(*name ? name : "?") + "' is unknown.\n");
  }
}

TEST(session, connected_session_causes_no_traffic_and_clears_the_error) {
  fake_server server;
  mif_connect();
  mif_store_error(err_from_text(8, 2, "old"));
  server.log.clear();
  EXPECT_EQ(mif_connect(), MIF_CONNECTED);
  EXPECT_EQ(mif_last_error(), nullptr);
  EXPECT_TRUE(server.log.empty());
}

TEST(session, process_that_ends_stops_connecting) {
  fake_server server;
  mif_set_noretry(false);
  server.ends = true;
  server.refusals = {{error_of(25003, "refused"), true}};
  EXPECT_EQ(mif_connect(), -1);
  EXPECT_EQ(last_code(), 25003);
}

TEST(session, change_of_server) {
  ASSERT_EQ(ks_client_add_alias("saturn", "saturn-alias"), 0);
  struct {
    int line;
    const char *to;
    bool stays;
  } rows[] = {
      {__LINE__, "saturn", true},
      {__LINE__, "saturn-alias", true},
      {__LINE__, "pluto-unknown-host.invalid", false},
      {__LINE__, nullptr, false},
  };
  for (const auto &row : rows) {
    SCOPED_TRACE(row.line);
    fake_server server;
    mif_set_server("saturn");
    ASSERT_EQ(mif_connect(), MIF_CONNECTED);
    mif_set_server(row.to != nullptr ? std::string_view(row.to) : std::string_view());
    EXPECT_EQ(server.connections, row.stays ? 1 : 0);
    EXPECT_EQ(mif_get().mif_server.value_or("-"), row.to != nullptr ? row.to : "-");
  }
  fake_server server;
  mif_set_server({});
  EXPECT_EQ(mif_connect(), MIF_CONNECTED);
  EXPECT_EQ(mif_get().mif_server.value_or("-"), "here");
  mif_close();
  EXPECT_EQ(server.connections, 0);
}

// A call that fails: how often it is made, over which connections, and what is left.
TEST(session, one_shot_retry) {
  std::string good = ss_bytes({sample_ss("mars", "/", 5, 7)});
  struct {
    int line;
    std::vector<fake_answer> answers;
    bool found;
    int number;
    std::size_t connects;
  } rows[] = {
      {__LINE__, {{RPC_SUCCESS, good}}, true, 0, 1},
      {__LINE__, {answer_status(RPC_TIMEDOUT), {RPC_SUCCESS, good}}, true, 0, 2},
      {__LINE__, {answer_status(RPC_CANTRECV), answer_status(RPC_TIMEDOUT)}, false, 5, 2},
      {__LINE__, {answer_status(RPC_PROCUNAVAIL)}, false, 10, 1},
      {__LINE__, {answer_status(RPC_PROGVERSMISMATCH)}, false, 9, 1},
      {__LINE__, {{RPC_SUCCESS, good.substr(0, 50)}, {RPC_SUCCESS, good}}, true, 0, 2},
      {__LINE__, {{RPC_SUCCESS, error_bytes(85004, "gone")}}, false, 4, 1},
      {__LINE__, {{RPC_SUCCESS, ss_bytes({})}}, false, 0, 1},
      // An error that only looks like one of the transport asks for a new connection too.
      {__LINE__, {{RPC_SUCCESS, error_bytes(25005, "timed out")}, {RPC_SUCCESS, good}}, true, 0, 1},
  };
  for (const auto &row : rows) {
    SCOPED_TRACE(row.line);
    fake_server server;
    std::size_t at = 0;
    server.answer = [&](std::uint32_t, const std::string &) {
      return at < row.answers.size() ? row.answers[at++] : answer_status(RPC_FAILED);
    };
    ss_list list = fetchss_id(ksui_from_number(7), true);
    EXPECT_EQ(!list.empty(), row.found);
    EXPECT_EQ(err_number(last_code()), row.number);
    EXPECT_EQ(at, row.answers.size());
    EXPECT_EQ(std::count(server.log.begin(), server.log.end(), "connect server"), row.connects);
    // The next call may be retried again.
    EXPECT_FALSE(mif_get().mif_retry_once);
    EXPECT_EQ(mif_get().mif_server.value_or("-"), "server");
  }
}

TEST(session, timed_retry) {
  errobj_t lost = error_of(25005, "Timed out"), gone = error_of(85004, "gone");
  struct {
    int line;
    const errobj_t *error;
    std::uint32_t seconds;
    bool ends;
    int yes;  // how often the answer is yes
  } rows[] = {
      {__LINE__, &lost, 0, false, 0},   {__LINE__, &lost, 60, true, 0},
      {__LINE__, &gone, 60, false, 0},  {__LINE__, nullptr, 60, false, 0},
      {__LINE__, &lost, 1, false, 1},   {__LINE__, &lost, 5, false, 2},
      {__LINE__, &lost, 60, false, 13},
  };
  for (const auto &row : rows) {
    SCOPED_TRACE(row.line);
    fake_server server;
    server.ends = row.ends;
    int yes = 0;
    while (mif_retry_timed("get_ss 7", row.error, row.seconds)) yes++;
    EXPECT_EQ(yes, row.yes);
    EXPECT_EQ(server.log.size(), static_cast<std::size_t>(row.yes));
    EXPECT_EQ(mif_get().mif_retry_since, 0);
    EXPECT_EQ(mif_get().mif_retry_count, 0u);
  }
}

TEST(session, no_one_shot_retry_inside_a_timed_one) {
  fake_server server;
  server.answer = [](std::uint32_t, const std::string &) { return answer_status(RPC_TIMEDOUT); };
  errobj_t lost = error_of(25005, "Timed out");
  ASSERT_TRUE(mif_retry_timed("x", &lost, 60));
  EXPECT_TRUE(fetchss_id(ksui_from_number(7), true).empty());
  EXPECT_EQ(server.calls(MMDB_FETCHSS_IDS), 1u);
  mif_retry_timed("x", nullptr, 60);
}

TEST(session, each_thread_has_its_own) {
  fake_server server;
  mif_store_error(err_from_text(8, 2, "of the main thread"));
  std::thread([] {
    EXPECT_EQ(mif_last_error(), nullptr);
    EXPECT_FALSE(mif_get().mif_server.has_value());
    mif_set_server("other");
    EXPECT_EQ(mif_connect(), MIF_CONNECTED);
  }).join();
  EXPECT_EQ(server.connections, 0);  // the thread's end closed its own
  EXPECT_EQ(last_code() % 1000, 2);
}

}  // namespace
}  // namespace qvr
