#include "lab_fixture.h"

namespace qvr::test {
namespace {

class misbehaviour : public lab_test {
 protected:
  static std::string volumes() { return raw_out().text("").u32(0).bytes; }
};

TEST(fault_spec, bad_rules_are_refused_with_a_reason) {
  struct {
    int line;
    const char *spec;
    const char *why;
  } rows[] = {
      {__LINE__, "clos=5", "unknown fault word: clos=5"},
      {__LINE__, "close", "bad value of a fault word: close"},
      {__LINE__, "close=-1", "bad value of a fault word: close=-1"},
      {__LINE__, "daemon=sshd", "bad value of a fault word: daemon=sshd"},
      {__LINE__, "refuse=1", "bad value of a fault word: refuse=1"},
      {__LINE__, "patch=5", "bad value of a fault word: patch=5"},
      {__LINE__, "fragment=0", "a fragment needs bytes"},
      {__LINE__, "auth=maybe", "unknown form in fault: auth=maybe"},
      {__LINE__, "proc=1x", "bad value of a fault word: proc=1x"},
  };
  for (const auto &row : rows) {
    SCOPED_TRACE(row.line);
    std::string why;
    EXPECT_FALSE(parse_fault(row.spec, why));
    EXPECT_EQ(why, row.why);
  }
  std::string why;
  auto fault = parse_fault("daemon=qvrd,proc=101,call=2,error=0x7530:one, two", why);
  ASSERT_TRUE(fault) << why;
  EXPECT_EQ(fault->error, 30000);
  EXPECT_EQ(fault->error_text, "one, two");
}

TEST_F(misbehaviour, replies_are_spoiled_as_told) {
  raw_client quiet = mmdb();
  std::string good = quiet.call(65, volumes()).results;
  ASSERT_GT(good.size(), 1000u);
  std::string patched = good, flipped = good;
  patched.replace(4, 4, "\xff\xff\xff\xff");  // behind 24 bytes of header
  flipped[2] = static_cast<char>(flipped[2] ^ 0x40);
  struct {
    int line;
    const char *fault;
    bool arrived;
    std::uint32_t accept;
    std::string results;
    std::uint32_t fragments;
  } rows[] = {
      {__LINE__, "proc=65,fragment=100", true, 0, good,
       static_cast<std::uint32_t>((good.size() + 24 + 99) / 100)},
      {__LINE__, "proc=65,truncate=9", true, 0, good.substr(0, good.size() - 9), 1},
      {__LINE__, "proc=65,pad=8", true, 0, good + std::string(8, '\0'), 1},
      {__LINE__, "proc=65,patch=28:0xffffffff", true, 0, patched, 1},
      {__LINE__, "proc=65,flip=209", true, 0, flipped, 1},
      {__LINE__, "proc=65,xid", false, 0, "", 1},
      {__LINE__, "proc=65,accept=5", true, 5, "", 1},
      {__LINE__, "proc=65,error=5:no", true, 0, raw_out().u32(4).u32(5).text("no").bytes, 1},
      {__LINE__, "proc=65,nodes=2", true, 0,
       raw_out().u32(2).u32(1).u32(0).u32(1).u32(0).u32(0).bytes, 1},
      {__LINE__, "proc=65,trickle=0", true, 0, good, 1},
      {__LINE__, "proc=64,truncate=9", true, 0, good, 1},
      {__LINE__, "daemon=qvrd,truncate=9", true, 0, good, 1},
  };
  for (const auto &row : rows) {
    SCOPED_TRACE(row.line);
    misbehave(row.fault);
    raw_reply reply = mmdb().call(65, volumes());
    EXPECT_EQ(reply.arrived, row.arrived);
    EXPECT_EQ(reply.accept, row.accept);
    EXPECT_EQ(reply.fragments, row.fragments);
    EXPECT_TRUE(reply.results == row.results) << reply.results.size();
  }
}

TEST_F(misbehaviour, a_failure_may_be_a_whole_error_object) {
  misbehave("proc=65,structured,error=85005:no such volume");
  raw_in in = mmdb().call(65, volumes()).in();
  EXPECT_EQ(in.u32(), 4u);
  EXPECT_EQ(in.u32(), 85005u);
  std::string text = in.text();
  EXPECT_EQ(text.substr(0, text.find('\0')), "the lab says: no such volume");
  EXPECT_GT(text.size(), text.find('\0') + 20);
  EXPECT_EQ(in.left(), 0u);
}

TEST_F(misbehaviour, connections_end_after_the_byte_that_was_told) {
  for (std::size_t n : {0u, 1u, 3u, 4u, 27u, 28u, 29u, 500u}) {
    SCOPED_TRACE(n);
    misbehave("daemon=qvrmmdbd,close=" + std::to_string(n) + ",times=1");
    raw_client client = mmdb();
    std::string call = client.message(65, volumes());
    client.socket().put(
        raw_out().u32(0x80000000 | static_cast<std::uint32_t>(call.size())).raw(call).bytes);
    EXPECT_EQ(client.socket().get(n + 1).size(), n);
    EXPECT_TRUE(mmdb().call(65, volumes()).arrived);
  }
}

TEST_F(misbehaviour, an_end_may_be_a_reset) {
  for (bool hard : {false, true}) {
    SCOPED_TRACE(hard);
    misbehave(hard ? "close=8,reset" : "close=8");
    raw_client client = mmdb();
    std::string call = client.message(0, "");
    client.socket().put(
        raw_out().u32(0x80000000 | static_cast<std::uint32_t>(call.size())).raw(call).bytes);
    char byte;
    ssize_t got = 1;
    // A reset may overtake the bytes in front of it.
    while (got > 0) got = recv(client.socket().fd(), &byte, 1, 0);
    EXPECT_EQ(got, hard ? -1 : 0);
    if (hard) {
      EXPECT_EQ(errno, ECONNRESET);
    }
  }
}

TEST_F(misbehaviour, a_cut_counts_over_connections_and_strikes_again_at_the_same_byte) {
  // A null call is 44 bytes with its mark, its reply 28.
  for (const char *fault : {"cut=60,times=2", "cut-in=104,times=2"}) {
    SCOPED_TRACE(fault);
    misbehave(fault);
    struct {
      int line;
      bool first, second;
    } rows[] = {{__LINE__, true, true},    // 56 bytes, or 88
                {__LINE__, false, false},  // cut at byte 4, or 16
                {__LINE__, false, false},  // the next one too
                {__LINE__, true, true}};
    for (const auto &row : rows) {
      SCOPED_TRACE(row.line);
      raw_client client = mmdb();
      EXPECT_EQ(client.call(0).arrived, row.first);
      EXPECT_EQ(client.call(0).arrived, row.second);
    }
  }
}

TEST_F(misbehaviour, connections_are_refused_delayed_and_left_waiting) {
  misbehave("daemon=qvrmmdbd,refuse,times=1");
  EXPECT_FALSE(mmdb().call(0).arrived);
  EXPECT_TRUE(mmdb().call(0).arrived);

  misbehave("proc=0,silence,times=1");
  raw_client client = mmdb();
  client.timeout = std::chrono::milliseconds(100);
  EXPECT_FALSE(client.call(0).arrived);
  client.timeout = std::chrono::seconds(10);
  EXPECT_TRUE(client.call(0).arrived);

  misbehave("delay=150");
  auto start = std::chrono::steady_clock::now();
  EXPECT_TRUE(client.call(0).arrived);
  EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(150));

  misbehave("daemon=pmap,silence");
  raw_client datagrams = pmap(true);
  datagrams.timeout = std::chrono::milliseconds(100);
  EXPECT_FALSE(datagrams.call(0).arrived);

  misbehave("garbage=40");
  raw_client confused = mmdb();
  confused.timeout = std::chrono::milliseconds(100);
  EXPECT_FALSE(confused.call(0).arrived);
}

TEST_F(misbehaviour, rules_strike_the_calls_that_they_name) {
  misbehave("daemon=qvrmmdbd,proc=65,call=2,times=2,deny=1");
  raw_client client = mmdb();
  for (bool denied : {false, true, true, false})
    EXPECT_EQ(client.call(65, volumes()).denied.has_value(), denied);
  misbehave("daemon=qvrmmdbd,conn=1,deny=1");
  EXPECT_FALSE(mmdb().call(0).denied);
}

TEST_F(misbehaviour, a_stop_does_not_wait_for_those_who_hang) {
  lab_installation other;
  lab_options options = test_options();
  std::string why;
  options.faults = {*parse_fault("delay=60000", why)};
  ASSERT_TRUE(other.start(options, why)) << why;
  raw_client idle(other.port(), 100000, 2), late(other.port(), 100000, 2);
  late.timeout = std::chrono::milliseconds(50);
  EXPECT_FALSE(late.call(0).arrived);
  auto start = std::chrono::steady_clock::now();
  other.stop();
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(5));
  EXPECT_EQ(idle.socket().get(1), "");
}

class log_of_calls : public lab_test {};

TEST_F(log_of_calls, tells_connections_calls_and_arguments) {
  {
    raw_client client = mmdb();
    client.call(65, raw_out().text("vault.001").u32(1).bytes);
    client.call(99);
  }
  std::vector<lab_event> events;
  for (int i = 0; i < 500 && (events.empty() || events.back().event != "close"); i++) {
    usleep(10000);
    events = lab->events();
  }
  ASSERT_EQ(events.size(), 4u);
  EXPECT_EQ(events[0].event, "open");
  EXPECT_EQ(events[0].daemon, "qvrmmdbd");
  EXPECT_EQ(events[1].name, "mmdb_get_vols_name");
  EXPECT_EQ(events[1].args, R"({"volume":"vault.001","full":true})");
  EXPECT_EQ(events[1].records, 1u);
  EXPECT_EQ(events[1].auth, "AUTH_NONE");
  EXPECT_EQ(events[2].status, "procedure unavailable");
  EXPECT_EQ(events[3].event, "close");
  for (const lab_event &event : events) EXPECT_EQ(event.conn, events[0].conn);
}

TEST_F(log_of_calls, lines_are_json_that_reads_back) {
  lab_event event;
  event.event = "call";
  event.conn = 7;
  event.daemon = "qvrd";
  event.prog = 390109;
  event.vers = 2;
  event.proc = 101;
  event.name = "RAP_QUERY";
  event.auth = "AUTH_UNIX";
  event.args = R"({"query":{"a\"}":["x,{\\\n]"]}})";
  event.status = "line\nbreak \"q\" \xff";
  event.records = 3;
  event.bytes = 4;
  std::string line = event.line();
  EXPECT_EQ(line, R"({"conn":7,"event":"call","daemon":"qvrd","prog":390109,"vers":2,"proc":101,)"
                  R"("name":"RAP_QUERY","auth":"AUTH_UNIX","status":"line\u000abreak \"q\" )"
                  "\xef\xbf\xbd"
                  R"(","args":{"query":{"a\"}":["x,{\\\n]"]}},"records":3,"bytes":4})");
  std::string path = "/tmp/lab-log-" + std::to_string(getpid());
  {
    call_log log;
    ASSERT_TRUE(log.open(path));
    log.add(event);
    log.add(event);
  }
  std::vector<lab_event> events = read_call_log(path);
  unlink(path.c_str());
  ASSERT_EQ(events.size(), 2u);
  EXPECT_EQ(events[1].args, event.args);
  EXPECT_EQ(events[1].proc, 101u);
  EXPECT_EQ(events[1].status, "line\nbreak \"q\" \xef\xbf\xbd");
  EXPECT_EQ(events[1].bytes, 4u);
}

}  // namespace
}  // namespace qvr::test
