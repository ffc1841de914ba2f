// Changes: batches, and what goes out one at a time to a server that knows no batches.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <set>

#include "fake_server.h"
#include "mmdb_updates.h"
#include "xdr_shared.h"

namespace qvr {
namespace {

using testing::ElementsAre;

// A server that does not know some procedures and fails on what has the number 2.
struct old_server {
  fake_server server;
  std::set<std::uint32_t> unknown;
  clnt_stat refusal = RPC_PROCUNAVAIL;

  explicit old_server(std::set<std::uint32_t> procedures) : unknown(std::move(procedures)) {
    server.answer = [this](std::uint32_t procedure, const std::string &) -> fake_answer {
      if (unknown.contains(procedure)) return {refusal, {}};
      const std::string &line = server.log.back();
      bool fails = line.find(" 2") != std::string::npos || line.find("\"2\"") != std::string::npos;
      errobj_t *error = fails ? err_from_text(8, 2, "busy") : nullptr;
      xdr_memory_writer out;
      switch (mmdb_find_proc(procedure)->reply) {
        case mmdb_reply::errinfo:
          xdr_put_errinfo(out, error);
          break;
        case mmdb_reply::ssop: {
          ssop_reply reply;
          reply.status = MMDB_OK;
          reply.failures.push_back({ksui_from_number(7), *err_from_text(8, 2, "busy")});
          xdr_put_reply(out, reply);
          break;
        }
        case mmdb_reply::volops: {
          volops_reply reply;
          reply.status = 3;
          reply.error = err_from_text(8, 2, "busy");
          reply.failed = {ksui_from_number(7)};
          xdr_put_reply(out, reply);
          break;
        }
        case mmdb_reply::vol: {
          vol_reply reply;
          reply.status = MMDB_OK;
          xdr_put_reply(out, reply);
          break;
        }
        default:
          return {RPC_SUCCESS, ss_bytes({sample_ss("mars", "/", 1, 1)})};
      }
      return {RPC_SUCCESS, out.take()};
    };
  }
  // The procedures that were called, in order.
  std::vector<int> called() {
    std::vector<int> numbers;
    for (const std::string &line : server.log) {
      EXPECT_EQ(line.find("damaged"), std::string::npos) << line;
      if (std::isdigit(line[0])) numbers.push_back(std::stoi(line));
    }
    return numbers;
  }
};

TEST(updates, of_save_sets) {
  ss_t one = sample_ss("mars", "/", 1, 1), two = sample_ss("mars", "/", 2, 2);
  const ss_t *list[] = {&one, &two};
  std::vector<op_failure_t> failures;
  {
    old_server server({});
    EXPECT_EQ(update_ss_list(list, failures), nullptr);
    EXPECT_THAT(server.called(), ElementsAre(82));
    ASSERT_EQ(failures.size(), 1u);
    EXPECT_EQ(failures[0].id, ksui_from_number(7));
  }
  old_server server({82});
  EXPECT_EQ(update_ss_list(list, failures), nullptr);
  EXPECT_THAT(server.called(), ElementsAre(82, 51, 51));
  ASSERT_EQ(failures.size(), 1u);
  EXPECT_EQ(failures[0].id, two.ssid);
  EXPECT_EQ(failures[0].error.text, "busy");
}

TEST(updates, deletion_falls_back_for_a_version_too) {
  ksui ids[] = {ksui_from_number(1), ksui_from_number(2)};
  struct {
    int line;
    clnt_stat refusal;
    bool falls_back;
  } rows[] = {
      {__LINE__, RPC_PROCUNAVAIL, true},
      {__LINE__, RPC_PROGVERSMISMATCH, true},
      {__LINE__, RPC_SYSTEMERROR, false},
  };
  for (const auto &row : rows) {
    SCOPED_TRACE(row.line);
    old_server server({84});
    server.refusal = row.refusal;
    std::vector<op_failure_t> failures;
    errobj_t *error = delete_ss_list(ids, failures);
    EXPECT_EQ(error == nullptr, row.falls_back);
    EXPECT_EQ(failures.size(), row.falls_back ? 1u : 0u);
    EXPECT_EQ(server.called(),
              row.falls_back ? (std::vector<int>{84, 52, 52}) : (std::vector<int>{84, 84}));
  }
}

TEST(updates, of_volumes) {
  vol_t one, two;
  one.volid = ksui_from_number(1);
  one.volume = "1";
  two.volid = ksui_from_number(2);
  two.volume = "2";
  const vol_t *list[] = {&one, &two};
  std::vector<ksui> failed;
  {
    old_server server({});
    EXPECT_NE(update_vol_list(list, 1, true, failed), nullptr);
    EXPECT_THAT(failed, ElementsAre(ksui_from_number(7)));
    EXPECT_EQ(update_vol(one, 1, false), nullptr);
    EXPECT_THAT(server.called(), ElementsAre(80, 79));
  }
  old_server server({79, 80});
  EXPECT_NE(update_vol_list(list, 1, true, failed), nullptr);
  EXPECT_THAT(failed, ElementsAre(two.volid));
  EXPECT_EQ(update_vol(one, 1, false), nullptr);
  EXPECT_THAT(server.called(), ElementsAre(80, 60, 61, 60, 61, 79, 60, 61));
}

TEST(updates, newest_known_form_of_a_request) {
  struct {
    int line;
    std::set<std::uint32_t> unknown;
    std::vector<int> called;
  } rows[] = {
      {__LINE__, {}, {89}},
      {__LINE__, {89}, {89, 83}},
      {__LINE__, {89, 83}, {89, 83, 50}},
  };
  for (const auto &row : rows) {
    SCOPED_TRACE(row.line);
    old_server server(row.unknown);
    ss_related_t asked;
    asked.ssid = ksui_from_number(1);
    EXPECT_EQ(get_ss_related(asked).size(), 1u);
    EXPECT_EQ(server.called(), row.called);
  }
}

TEST(updates, refused_fragment_operation_is_remembered_by_the_connection) {
  old_server server({91});
  for (int i = 0; i < 2; i++) {
    errobj_t *error = fragment_op(ksui_from_number(1), 5, {});
    EXPECT_TRUE(error != nullptr && err_is(error->code, 2, RPC_PROCUNAVAIL));
  }
  EXPECT_THAT(server.called(), ElementsAre(91));
  mif_close();
  server.unknown.clear();
  mif_set_server("server");
  EXPECT_EQ(fragment_op(ksui_from_number(1), 5, {}), nullptr);
  EXPECT_THAT(server.called(), ElementsAre(91, 91));
}

}  // namespace
}  // namespace qvr
