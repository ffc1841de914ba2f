#include "lab_fixture.h"

namespace qvr::test {
namespace {

class pmap_service : public lab_test {};

std::string row(std::uint32_t program, std::uint32_t version, std::uint32_t protocol,
                std::uint32_t port = 0) {
  return raw_out().u32(program).u32(version).u32(protocol).u32(port).bytes;
}

TEST_F(pmap_service, names_ports_over_tcp_and_udp) {
  struct {
    int line;
    std::uint32_t program, version, protocol;
    const char *daemon;  // null: not registered
  } rows[] = {
      {__LINE__, 100000, 2, 6, "pmap"},     {__LINE__, 100000, 2, 17, "pmap"},
      {__LINE__, 390113, 1, 6, "qvrexecd"}, {__LINE__, 390109, 2, 6, "qvrd"},
      {__LINE__, 390107, 6, 6, "qvrmmdbd"}, {__LINE__, 390107, 5, 6, nullptr},
      {__LINE__, 390107, 6, 17, nullptr},   {__LINE__, 390436, 2, 6, nullptr},
  };
  for (bool udp : {false, true}) {
    raw_client client = pmap(udp);
    for (const auto &at : rows) {
      SCOPED_TRACE(at.line);
      raw_reply reply = client.call(3, row(at.program, at.version, at.protocol));
      ASSERT_TRUE(reply.arrived);
      EXPECT_EQ(reply.in().u32(), at.daemon == nullptr ? 0 : lab->port(at.daemon));
    }
  }
}

TEST_F(pmap_service, registers_and_forgets_strangers_only) {
  raw_client client = pmap();
  struct {
    int line;
    std::uint32_t procedure;
    std::string arguments;
    std::uint32_t result;
  } rows[] = {
      {__LINE__, 1, row(200001, 1, 6, 999), 1}, {__LINE__, 1, row(200001, 1, 6, 999), 1},
      {__LINE__, 1, row(200001, 1, 6, 998), 0}, {__LINE__, 3, row(200001, 1, 6), 999},
      {__LINE__, 2, row(200001, 1, 0), 1},      {__LINE__, 3, row(200001, 1, 6), 0},
      {__LINE__, 2, row(200001, 1, 0), 0},      {__LINE__, 2, row(390107, 6, 6), 0},
  };
  for (const auto &at : rows) {
    SCOPED_TRACE(at.line);
    EXPECT_EQ(client.call(at.procedure, at.arguments).in().u32(), at.result);
  }
}

TEST_F(pmap_service, dump_lists_every_daemon_once) {
  raw_reply reply = pmap().call(4);
  raw_in in = reply.in();
  std::vector<std::uint32_t> programs;
  while (in.u32() == 1) {
    programs.push_back(in.u32());
    in.raw(12);
  }
  EXPECT_TRUE(in.good);
  EXPECT_EQ(programs, (std::vector<std::uint32_t>{100000, 100000, 390113, 390436, 390109, 390107}));
}

TEST_F(pmap_service, answers_what_is_not_there_as_told) {
  struct {
    int line;
    std::uint32_t program, version, procedure;
    std::uint32_t accept;
  } rows[] = {
      {__LINE__, 100000, 2, 0, 0}, {__LINE__, 100001, 2, 0, 1}, {__LINE__, 100000, 3, 0, 2},
      {__LINE__, 100000, 2, 9, 3}, {__LINE__, 100000, 2, 3, 4},
  };
  for (const auto &at : rows) {
    SCOPED_TRACE(at.line);
    raw_client client(lab->port("pmap"), at.program, at.version);
    raw_reply reply = client.call(at.procedure);
    EXPECT_TRUE(reply.arrived);
    EXPECT_EQ(reply.accept, at.accept);
    if (at.accept == 2) {
      EXPECT_EQ(reply.results, raw_out().u32(2).u32(2).bytes);
    }
  }
}

TEST_F(pmap_service, takes_records_in_any_fragments) {
  raw_client client = pmap();
  std::string message = client.message(3, row(390107, 6, 6));
  std::string bytes;
  for (std::size_t i = 0; i < message.size(); i++) {
    bytes += raw_out().u32(i + 1 == message.size() ? 0x80000001 : 1).bytes + message[i];
    if (i == 7) bytes += raw_out().u32(0).bytes;  // an empty one between
  }
  ASSERT_TRUE(client.socket().put(bytes));
  EXPECT_EQ(client.receive().in().u32(), lab->port("qvrmmdbd"));
  // What is no call ends the connection.
  ASSERT_TRUE(client.socket().put(raw_out().u32(0x80000008).u32(1).u32(1).bytes));
  EXPECT_EQ(client.socket().get(1), "");
}

}  // namespace
}  // namespace qvr::test
