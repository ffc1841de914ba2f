// Client identity: names, ids and index names, over a resource database and a client id map in
// memory.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <map>
#include <set>
#include <thread>

#include "client_identity.h"
#include "current_client.h"
#include "fake_server.h"
#include "hosts.h"
#include "ks_clock.h"
#include "mmdb_args.h"

namespace qvr {
namespace {

using testing::ElementsAre;

// Resources of clients, with a log of what was asked: "attribute=value".
class fake_resources final : public resdb_t {
 public:
  explicit fake_resources(std::vector<attrlist> clients) : clients_(std::move(clients)) {
    set_client_rap(this);
    cc_set_rap(this);
  }
  ~fake_resources() override {
    set_client_rap(nullptr);
    cc_set_rap(nullptr);
  }

  errobj_t *rap_query(const attrlist &query, std::uint32_t limit,
                      std::vector<resid_t> &ids) override {
    EXPECT_EQ(limit, 1u);
    EXPECT_TRUE(attrlist_has(query, "type", "QVR client"));
    for (const attr_t &attr : query) {
      if (attr.name != "type") log.push_back(attr.name + "=" + attr.values.at(0));
    }
    if (failing) return err_from_text(3, 4, "database is damaged");
    for (std::uint32_t i = 0; i < clients_.size(); i++) {
      bool matches = true;
      for (const attr_t &attr : query) {
        if (attr.name != "type")
          matches = matches && attrlist_has(clients_[i], attr.name, attr.values.at(0));
      }
      if (matches && ids.empty()) ids.push_back({{}, i});
    }
    return nullptr;
  }
  errobj_t *rap_retrieve(const std::vector<resid_t> &ids, const attrlist &,
                         reslist_t &resources) override {
    for (const resid_t &id : ids) resources.push_back({clients_[id.sequence], id});
    return nullptr;
  }

  std::vector<std::string> log;
  bool failing = false;

 private:
  std::vector<attrlist> clients_;
};

attrlist client(const std::string &name, vallist aliases) {
  return {{"aliases", std::move(aliases)}, {"name", {name}}};
}

TEST(client_by_name, roads_to_a_name) {
  fake_server server;
  fake_resources resources({client("mercury", {"mercury-a", "10.7.7.1"}), client("jupiter", {})});
  struct {
    int line;
    const char *asked;
    const char *name;
    std::vector<std::string> queries;
  } rows[] = {
      {__LINE__, "", "", {}},
      {__LINE__, "mercury-a", "mercury", {"aliases=mercury-a"}},
      // From now on the cache answers for every alias.
      {__LINE__, "mercury-a", "mercury", {}},
      {__LINE__, "10.7.7.1", "mercury", {}},
      {__LINE__, "jupiter", "jupiter", {"aliases=jupiter", "name=jupiter"}},
      {__LINE__, "nobody", "", {"aliases=nobody", "name=nobody"}},
      {__LINE__, "10.99.99.99", "", {"aliases=10.99.99.99", "name=10.99.99.99"}},
      {__LINE__, "localhost", "", {"aliases=here", "name=here"}},
  };
  for (const auto &row : rows) {
    SCOPED_TRACE(row.line);
    resources.log.clear();
    EXPECT_EQ(get_client_by_name(row.asked), row.name);
    EXPECT_EQ(resources.log, row.queries);
  }
  resources.failing = true;
  testing::internal::CaptureStderr();
  EXPECT_EQ(get_client_by_name("another"), "");
  EXPECT_NE(testing::internal::GetCapturedStderr().find("database is damaged"), std::string::npos);
}

TEST(client_by_name, without_resources_only_the_cache_knows) {
  fake_server server;
  ASSERT_EQ(ks_client_add_alias("neptune", "neptune-a"), 0);
  EXPECT_EQ(get_client_by_name("neptune-a"), "neptune");
  EXPECT_EQ(get_client_by_name("uranus"), "");
}

TEST(same_client, answers_are_remembered) {
  fake_server server;
  fake_resources resources({client("mars-1", {"mars-1a"}), client("mars-2", {})});
  EXPECT_TRUE(same_client("x", "x"));
  EXPECT_FALSE(same_client("", ""));
  EXPECT_FALSE(same_client("x", ""));
  EXPECT_TRUE(resources.log.empty());
  for (int i = 0; i < 100; i++) {
    EXPECT_TRUE(same_client("mars-1a", "mars-1"));
    EXPECT_TRUE(same_client("MARS-2", "mars-2"));
    EXPECT_FALSE(same_client("mars-1", "mars-2"));
    EXPECT_FALSE(same_client("unknown-1", "unknown-2"));
    EXPECT_FALSE(same_client("unknown-1", "mars-2"));
  }
  // No name is asked for by more than its two queries.
  std::map<std::string, int> asked;
  for (const std::string &line : resources.log) asked[line]++;
  for (const auto &[line, count] : asked) EXPECT_EQ(count, 1) << line;
  EXPECT_TRUE(client_in_list({"venus", "mars-1"}, "mars-1a"));
  EXPECT_FALSE(client_in_list({"venus", "mars-2"}, "mars-1a"));
}

TEST(same_client, threads_ask_once) {
  fake_server server;
  fake_resources resources({client("io", {"io-a"})});
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; i++) {
    threads.emplace_back([] {
      for (int name = 0; name < 20; name++)
        EXPECT_FALSE(same_client("moon-" + std::to_string(name), "io"));
      EXPECT_TRUE(same_client("io-a", "io"));
    });
  }
  for (std::thread &thread : threads) thread.join();
  // Two for each unknown name, and the alias, which puts the name into the cache.
  EXPECT_EQ(std::set<std::string>(resources.log.begin(), resources.log.end()).size(),
            resources.log.size());
}

ksui client_id(std::uint32_t number) {
  ksui id;
  id.set_word(0, KSUI_CLIENT);
  id.set_word(1, number);
  return id;
}

std::string id_text(std::uint32_t number) {
  return ksui_text(client_id(number), ksui_form::long_form);
}

// The client id map: "mars" is 1.
struct map_server {
  fake_server server;
  bool failing = false;
  std::int64_t *clock() {
    static std::int64_t now;
    return &now;
  }
  map_server() {
    *clock() = 1000000;
    server.answer = [this](std::uint32_t, const std::string &args) {
      xdr_memory_reader in(args);
      arena page;
      mmdb_clidmap_args asked;
      xdr_get_args(in, page, asked);
      clidmap_reply reply;
      reply.status = MMDB_NO_ENTRY;
      if (failing) {
        reply.status = 3;
        reply.error = err_from_text(8, 2, "map is damaged");
      } else if (asked.clientname == "mars" || asked.clientid == client_id(1)) {
        reply.status = MMDB_OK;
        reply.entry = clidmap{client_id(1), "mars"};
      }
      return fake_answer{RPC_SUCCESS, encoded(reply)};
    };
  }
};

TEST(client_id_map, is_remembered_where_it_knows) {
  map_server map;
  std::optional<clidmap> entry;
  for (int i = 0; i < 3; i++) {
    EXPECT_EQ(clidmap_lookup({}, i == 2 ? "MARS" : "mars", entry), nullptr);
    ASSERT_TRUE(entry.has_value());
    EXPECT_EQ(entry->clientid, client_id(1));
  }
  EXPECT_EQ(map.server.calls(MMDB_GET_CLIDMAP), 1u);
  for (int i = 0; i < 2; i++) {
    EXPECT_EQ(clidmap_lookup(client_id(1), {}, entry), nullptr);
    EXPECT_EQ(entry->clientname, "mars");
  }
  EXPECT_EQ(map.server.calls(MMDB_GET_CLIDMAP), 2u);
  for (int i = 0; i < 2; i++) {
    EXPECT_EQ(clidmap_lookup({}, "pluto", entry), nullptr);
    EXPECT_FALSE(entry.has_value());
  }
  EXPECT_EQ(map.server.calls(MMDB_GET_CLIDMAP), 4u);
  map.failing = true;
  errobj_t *error = clidmap_lookup({}, "venus", entry);
  ASSERT_NE(error, nullptr);
  EXPECT_EQ(error->text, "map is damaged");
}

TEST(client_id_map, entries_live_600_seconds) {
  map_server map;
  static std::int64_t now = 5000;
  ks_set_clock([] { return now; });
  std::optional<clidmap> entry;
  clidmap_lookup({}, "mars", entry);
  now += 599;
  clidmap_lookup({}, "mars", entry);
  EXPECT_EQ(map.server.calls(MMDB_GET_CLIDMAP), 1u);
  now += 2;
  clidmap_lookup({}, "mars", entry);
  EXPECT_EQ(map.server.calls(MMDB_GET_CLIDMAP), 2u);
  ks_set_clock(nullptr);
}

TEST(client_id_map, name_of_an_id) {
  map_server map;
  std::string name;
  EXPECT_EQ(get_client_name_from_id(client_id(1), name), nullptr);
  EXPECT_EQ(name, "mars");
  errobj_t *error = get_client_name_from_id(client_id(2), name);
  ASSERT_NE(error, nullptr);
  EXPECT_EQ(error->message.id, 86785);
  EXPECT_EQ(error->code, 85003);
  EXPECT_EQ(error->text, "Cannot get client ID map for client ID '" + id_text(2) + "'.");
  error = get_client_name_from_id({}, name);
  ASSERT_NE(error, nullptr);
  EXPECT_EQ(error->text,
            "get_client_name_from_id: assertion, invalid parameters or code segment\n");
  EXPECT_EQ(client_id_text("mars"), id_text(1));
  EXPECT_EQ(client_id_text(id_text(9)), id_text(9));
  EXPECT_EQ(client_id_text("pluto"), "");
}

TEST(index_names, to_ids) {
  map_server map;
  std::string id = id_text(1);
  struct {
    int line;
    std::string name, with_id;
  } rows[] = {
      {__LINE__, "", ""},
      {__LINE__, "/usr", "/usr"},
      {__LINE__, "index:mars", "index:" + id},
      {__LINE__, "<3>index:mars", "<3>index:" + id},
      {__LINE__, "<0>index:mars", "index:" + id},
      {__LINE__, "<-1>index:mars", "index:" + id},
      {__LINE__, "<x>index:mars", "<x>index:mars"},
      {__LINE__, "<3>index:pluto", "<3>index:pluto"},
      {__LINE__, "index:", "index:"},
      {__LINE__, "index:mars rest", "index:" + id},
      {__LINE__, "index:" + id, "index:" + id},
      {__LINE__, "<3>index:" + id, "<3>index:" + id},
      {__LINE__, "myindex:mars", "myindex:mars"},
  };
  for (const auto &row : rows) {
    SCOPED_TRACE(row.line);
    EXPECT_EQ(index_name_to_id(row.name), row.with_id);
  }
}

TEST(index_names, to_clients) {
  map_server map;
  std::string id = id_text(1), unknown = id_text(2);
  struct {
    int line;
    std::string name, with_client;
    bool translated;
  } rows[] = {
      {__LINE__, "index:" + id, "index:mars", true},
      {__LINE__, "<3>index:" + id, "<3>index:mars", true},
      {__LINE__, "index:" + id + "/more", "index:mars/more", true},
      {__LINE__, "ab:" + id, "ab:" + id, false},
      {__LINE__, "other:" + id, "other:" + id, false},
      {__LINE__, "index:mars", "index:mars", false},
      {__LINE__, "index:" + unknown, "index:" + unknown, false},
      {__LINE__, "/usr", "/usr", false},
      {__LINE__, "", "", false},
  };
  testing::internal::CaptureStderr();
  for (const auto &row : rows) {
    SCOPED_TRACE(row.line);
    EXPECT_EQ(index_name_to_client(row.name, false), row.with_client);
    EXPECT_EQ(index_name_to_client(row.name, true), row.translated ? row.with_client : "");
  }
  EXPECT_NE(testing::internal::GetCapturedStderr().find("Cannot get client ID map"),
            std::string::npos);
}

TEST(index_names, translated_in_replies_and_requests) {
  map_server map;
  std::string id = id_text(1);
  auto map_answer = map.server.answer;
  map.server.answer = [&](std::uint32_t procedure, const std::string &args) {
    if (procedure == MMDB_GET_CLIDMAP) return map_answer(procedure, args);
    return fake_answer{RPC_SUCCESS, ss_bytes({sample_ss("mars", "index:" + id, 5, 1),
                                              sample_ss("mars", "/usr", 5, 2)})};
  };
  EXPECT_EQ(get_ss_query({true, "mars", "index:mars", {}, 0, 0, true}).rows.at(0)->name,
            "index:" + id);
  EXPECT_NE(map.server.log.back().find("name=\"index:" + id + "\""), std::string::npos);
  mif_set_clientid_names(true, true);
  ss_list list = get_ss_query({true, "mars", {}, {}, 0, 0, true});
  ASSERT_EQ(list.size(), 2u);
  EXPECT_EQ(list.rows[0]->name, "index:mars");
  EXPECT_EQ(list.rows[1]->name, "/usr");
}

// A look-up inside a call has its own second try: it neither gives the call a third one nor leaves
// it without a connection.
TEST(index_names, lookups_inside_calls) {
  errobj_t refused;
  refused.code = 25003;
  refused.text = "refused";
  struct {
    int line;
    std::uint32_t lost;  // the procedure whose calls lose the connection
    ss_query_t query;
    std::size_t queries, lookups;
  } rows[] = {
      {__LINE__, MMDB_GET_SS, {true, "mars", "index:pluto", {}, 0, 0, true}, 2, 2},
      {__LINE__, MMDB_GET_CLIDMAP, {true, {}, {}, {}, 0, 0, true}, 0, 1},
  };
  for (const auto &row : rows) {
    SCOPED_TRACE(row.line);
    map_server map;
    mif_set_clientid_names(true, true);
    auto map_answer = map.server.answer;
    map.server.answer = [&](std::uint32_t procedure, const std::string &args) {
      if (procedure == row.lost) {
        if (row.lost == MMDB_GET_CLIDMAP) map.server.refusals.assign(9, {refused, true});
        return fake_answer{RPC_CANTRECV, {}};
      }
      if (procedure == MMDB_GET_CLIDMAP) return map_answer(procedure, args);
      return fake_answer{RPC_SUCCESS, ss_bytes({sample_ss("mars", "index:" + id_text(2), 5, 1)})};
    };
    EXPECT_TRUE(get_ss_query(row.query).empty());
    EXPECT_NE(mif_last_error(), nullptr);
    EXPECT_EQ(map.server.calls(MMDB_GET_SS), row.queries);
    EXPECT_EQ(map.server.calls(MMDB_GET_CLIDMAP), row.lookups);
    EXPECT_FALSE(mif_get().mif_retry_once);
  }
}

TEST(current_client, loaded_from_its_resource) {
  map_server map;
  attrlist mars = client("mars", {"Mars-Alias"});
  attrlist_set(mars, "index path", "/indexes/of/mars");
  attrlist_set(mars, "client OS type", "Linux");
  fake_resources resources({mars, client("Venus", {})});
  EXPECT_EQ(index_path_of("mars", false), "/indexes/of/mars");
  EXPECT_EQ(cc_get().cc_os_type, "Linux");
  EXPECT_TRUE(cc_is_current("MARS"));
  EXPECT_TRUE(cc_is_current("mars-alias"));
  EXPECT_FALSE(cc_is_current("venus"));
  // The id of the current client is asked for once, whatever becomes of the map's cache.
  ksui id;
  EXPECT_TRUE(client_id_of("mars", id));
  mif_get().mif_clidmap_cache.clear();
  EXPECT_TRUE(client_id_of("mars-alias", id));
  EXPECT_EQ(id, client_id(1));
  EXPECT_EQ(map.server.calls(MMDB_GET_CLIDMAP), 1u);

  resources.log.clear();
  std::string path = index_path_of("mars-alias", false);
  EXPECT_TRUE(resources.log.empty());
  path = index_path_of("venus", false);
  EXPECT_TRUE(path.ends_with("/index/venus")) << path;
  EXPECT_EQ(index_path_of("nobody", false), "");
  EXPECT_THAT(resources.log, ElementsAre("name=venus", "name=nobody", "aliases=nobody"));
}

TEST(index_paths, of_clients) {
  fake_server server;
  fake_resources resources({client("mars", {})});
  EXPECT_EQ(index_path_client("/x/mars"), "mars");
  EXPECT_EQ(index_path_client("/x/nobody"), "");
  EXPECT_EQ(index_path_client("mars"), "");
  setenv("QVR_INDEX_PATH_MAP", "venus:/x/mars", 1);
  EXPECT_EQ(index_path_client("/x/mars"), "venus");
  EXPECT_EQ(index_path_client("/y/mars"), "mars");
  unsetenv("QVR_INDEX_PATH_MAP");
}

}  // namespace
}  // namespace qvr
