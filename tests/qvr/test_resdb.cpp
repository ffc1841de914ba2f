// The network resource database: opening, asking, waiting for a busy server.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "clnt_error.h"
#include "fake_server.h"
#include "rap_env.h"
#include "rap_protocol.h"

namespace qvr {
namespace {

using testing::ElementsAre;

class fake_rap final : public rap_env_t {
 public:
  fake_rap() { rap_set_env(this); }
  ~fake_rap() override { rap_set_env(nullptr); }

  std::unique_ptr<CLIENT> create(const rap_address_t &address) override {
    log.push_back("create " + address.host + ' ' + std::to_string(address.program) + ' ' +
                  std::to_string(address.version) + ' ' + address.transport);
    if (down) {
      set_create_err(RPC_CANTSEND, 111);
      return nullptr;
    }
    auto client = std::make_unique<fake_client>(
        [this](std::uint32_t procedure, const std::string &args) {
          return answer(procedure, args);
        },
        &connections);
    client->encryptable = encryptable;
    return client;
  }
  errobj_t *authenticate(CLIENT &, const rap_address_t &, const attrlist &attrs) override {
    log.push_back("auth " + *attrlist_first(attrs, "auth program number"));
    if (refusals.empty()) return nullptr;
    errobj_t *error = err_dup(&refusals.front());
    refusals.pop_front();
    if (err_number(error->code) == RPC_AUTHERROR) set_create_err(RPC_AUTHERROR, why);
    return error;
  }
  errobj_t *login(CLIENT &, const rap_address_t &, const std::string &user,
                  const std::string &password, const std::string &domain) override {
    log.push_back("login " + user + '/' + password + '/' + domain);
    return refusals.empty() ? nullptr : err_dup(&refusals.front());
  }
  bool wants_encryption() override { return encrypted; }
  bool turn_on_encryption(CLIENT &client) override { return client.set_encrypted(); }
  void sleep_seconds(unsigned seconds) override { sleeps.push_back(seconds); }

  std::function<fake_answer(std::uint32_t, const std::string &)> answer;
  std::deque<errobj_t> refusals;
  int why = 0;
  bool down = false, encrypted = false, encryptable = true;
  int connections = 0;
  std::vector<std::string> log;
  std::vector<unsigned> sleeps;
};

errobj_t error_of(std::int32_t code) {
  errobj_t error;
  error.code = code;
  error.text = "no";
  return error;
}

TEST(resdb_open, attributes) {
  attrlist whole = attrlist_build({{"ONC program number", {"390109"}},
                                   {"ONC version number", {"2"}},
                                   {"auth program number", {"390109"}},
                                   {"hostname", {"saturn"}}});
  auto without = [&](std::string_view name) {
    attrlist list = whole;
    attrlist_remove(list, name);
    return list;
  };
  struct {
    int line;
    attrlist attrs;
    std::int32_t number;  // of class 3; 0: opens
  } rows[] = {
      {__LINE__, whole, 0},
      {__LINE__, without("hostname"), 7},
      {__LINE__, without("ONC version number"), 8},
      {__LINE__, without("ONC program number"), 9},
  };
  for (const auto &row : rows) {
    SCOPED_TRACE(row.line);
    fake_rap rap;
    resdb_ptr handle;
    errobj_t *error = resdb_open(&row.attrs, true, false, &handle);
    EXPECT_EQ(handle != nullptr, row.number == 0);
    EXPECT_TRUE(row.number == 0 ? error == nullptr : err_is(error->code, 3, row.number));
  }
  resdb_ptr handle;
  errobj_t *error = resdb_open(&whole, true, false, nullptr);
  EXPECT_TRUE(error != nullptr && error->message.id == 85150 && error->code == 35017);
  error = resdb_open(nullptr, true, false, &handle);
  EXPECT_TRUE(error != nullptr && error->message.id == 85151 && error->code == 35020);
}

TEST(resdb_open, known_databases) {
  fake_rap rap;
  resdb_ptr handle;
  EXPECT_EQ(server_rap_open("saturn", handle), nullptr);
  EXPECT_EQ(local_rap_open("here", handle), nullptr);
  EXPECT_THAT(rap.log, ElementsAre("create saturn 390109 2 tcp", "auth 390109",
                                   "create here 390113 1 tcp", "auth 390113"));
  EXPECT_EQ(rap.connections, 1);  // the first handle went when the second came
  handle.reset();
  EXPECT_EQ(rap.connections, 0);
}

TEST(resdb_open, failures) {
  struct {
    int line;
    std::deque<errobj_t> refusals;
    int why;
    bool down, encrypted, encryptable;
    std::size_t attempts;
    std::int32_t id;  // of the error; 0: opens; -1: no message
  } rows[] = {
      {__LINE__, {error_of(25005)}, 0, false, false, true, 2, 0},
      {__LINE__, {error_of(25007)}, 13, false, false, true, 2, 0},
      {__LINE__, {error_of(25007)}, 5, false, false, true, 1, 77528},
      {__LINE__, {error_of(25003)}, 0, false, false, true, 1, 77528},
      {__LINE__, {9, error_of(25005)}, 0, false, false, true, 3, 77528},
      {__LINE__, {}, 0, true, false, true, 0, 42503},
      {__LINE__, {}, 0, false, true, true, 1, 0},
      {__LINE__, {}, 0, false, true, false, 1, 2446},
  };
  rap_set_auth_attempts(3);
  for (auto &row : rows) {
    SCOPED_TRACE(row.line);
    fake_rap rap;
    rap.refusals = row.refusals;
    rap.why = row.why;
    rap.down = row.down;
    rap.encrypted = row.encrypted;
    rap.encryptable = row.encryptable;
    resdb_ptr handle;
    testing::internal::CaptureStderr();
    errobj_t *error = server_rap_open("saturn", handle);
    std::string told = testing::internal::GetCapturedStderr();
    EXPECT_EQ(error != nullptr ? error->message.id : 0, row.id);
    EXPECT_EQ(handle != nullptr, row.id == 0);
    EXPECT_EQ(rap.connections, row.id == 0 ? 1 : 0);
    EXPECT_EQ(std::count(rap.log.begin(), rap.log.end(), "auth 390109"), row.attempts);
    EXPECT_EQ(told.find("during RAP bind operation: no\n") != std::string::npos, row.attempts > 1);
    if (row.id == 77528) {
      EXPECT_EQ(error->text, "Unable to authenticate with server saturn: no");
      EXPECT_EQ(error->code, 25007);
    }
  }
  rap_set_auth_attempts(RAP_AUTH_ATTEMPTS);
}

TEST(resdb_open, login_takes_the_place_of_the_exchange) {
  fake_rap rap;
  resdb_ptr handle;
  attrlist attrs = attrlist_build({{"ONC program number", {"390109"}},
                                   {"ONC version number", {"2"}},
                                   {"domain", {"d"}},
                                   {"hostname", {"saturn"}},
                                   {"login", {"ann"}},
                                   {"password", {"pw"}}});
  EXPECT_EQ(resdb_open(&attrs, true, false, &handle), nullptr);
  EXPECT_THAT(rap.log, ElementsAre("create saturn 390109 2 tcp", "login ann/pw/d"));
  rap.refusals = {error_of(25007)};
  EXPECT_NE(resdb_open(&attrs, true, false, &handle), nullptr);
  EXPECT_EQ(handle, nullptr);
  EXPECT_EQ(rap.connections, 0);
}

struct database_t {
  fake_rap rap;
  resdb_ptr handle;
  std::vector<std::string> calls;
  std::deque<errobj_t> busy;  // what the next calls answer
  std::uint32_t matching = 2;

  database_t() {
    rap.answer = [this](std::uint32_t procedure, const std::string &args) {
      return serve(procedure, args);
    };
    server_rap_open("saturn", handle);
  }
  fake_answer serve(std::uint32_t procedure, const std::string &args) {
    xdr_memory_reader in(args);
    if (procedure == RAP_QUERY) {
      rap_query_args asked;
      xdr_get_args(in, asked);
      calls.push_back("query " + std::to_string(asked.limit));
      rap_ids_reply reply;
      if (!refuse(reply)) reply.ids.resize(std::min(asked.limit, matching));
      return {RPC_SUCCESS, encoded(reply)};
    }
    rap_get_args asked;
    xdr_get_args(in, asked);
    calls.push_back("get " + std::to_string(asked.limit) + ' ' + std::to_string(asked.ids.size()) +
                    ' ' + std::to_string(asked.query.size()) + ' ' +
                    std::to_string(asked.wanted.size()));
    rap_res_reply reply;
    if (!refuse(reply)) {
      for (const resid_t &id : asked.ids) reply.resources.push_back({{{"name", {"mars"}}}, id});
    }
    return {RPC_SUCCESS, encoded(reply)};
  }
  template <class Reply>
  bool refuse(Reply &reply) {
    if (busy.empty()) return false;
    reply.status = RAP_ERROR;
    reply.error = err_dup(&busy.front());
    busy.pop_front();
    return true;
  }
};

TEST(resdb_query, two_calls_or_one) {
  struct {
    int line;
    std::uint32_t limit, matching;
    attrlist wanted;
    std::size_t found;
    std::vector<std::string> calls;
  } rows[] = {
      {__LINE__, 1, 2, {{"name", {}}}, 1, {"query 1", "get 8192 1 0 1"}},
      {__LINE__, RESDB_ALL, 2, {}, 2, {"query 134217727", "get 8192 2 0 0"}},
      {__LINE__, 1, 0, {}, 0, {"query 1"}},
  };
  for (const auto &row : rows) {
    SCOPED_TRACE(row.line);
    database_t database;
    database.matching = row.matching;
    reslist_t found;
    EXPECT_EQ(resdb_query(database.handle.get(), {{"type", {"QVR client"}}}, row.wanted, row.limit,
                          found),
              nullptr);
    EXPECT_EQ(found.size(), row.found);
    EXPECT_EQ(database.calls, row.calls);
  }
}

TEST(resdb_query, busy_server_is_asked_after_growing_pauses) {
  database_t database;
  database.busy.assign(9, error_of(33000));
  reslist_t found;
  EXPECT_EQ(resdb_query(database.handle.get(), {}, {}, 1, found), nullptr);
  EXPECT_THAT(database.rap.sleeps, ElementsAre(1, 2, 3, 4, 5, 6, 7, 7, 7));
  EXPECT_EQ(found.size(), 1u);

  rap_set_noretry(true);
  database.busy.assign(1, error_of(33999));
  errobj_t *error = resdb_query(database.handle.get(), {}, {}, 1, found);
  rap_set_noretry(false);
  EXPECT_TRUE(error != nullptr && error->code == 33999);
  EXPECT_TRUE(found.empty());
  database.busy.assign(1, error_of(34000));
  error = resdb_query(database.handle.get(), {}, {}, 1, found);
  EXPECT_TRUE(error != nullptr && error->code == 34000);
}

TEST(resdb_query, failures) {
  database_t database;
  reslist_t found(3);
  errobj_t *error = resdb_query(nullptr, {}, {}, 1, &found);
  EXPECT_TRUE(error != nullptr && error->message.id == 85180 && error->code == 35017);
  error = resdb_query(database.handle.get(), {}, {}, 1, nullptr);
  EXPECT_TRUE(error != nullptr && error->message.id == 85179 && error->code == 35017);
  database.rap.answer = [](std::uint32_t, const std::string &) {
    return fake_answer{RPC_TIMEDOUT, {}};
  };
  found.resize(3);
  error = resdb_query(database.handle.get(), {}, {}, 1, &found);
  EXPECT_TRUE(error != nullptr && err_is(error->code, 2, RPC_TIMEDOUT));
  EXPECT_TRUE(found.empty());
  resid_t id;
  error = database.handle->rap_create({}, id);
  EXPECT_TRUE(error != nullptr && err_is(error->code, 3, 1));
}

}  // namespace
}  // namespace qvr
