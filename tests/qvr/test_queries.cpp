// Queries over a fake server: chunks, pages, fan-out, fall-backs, caches and lists of names.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "fake_server.h"
#include "mmdb_args.h"
#include "queries.h"

namespace qvr {
namespace {

using testing::ElementsAre;

int last_code() {
  errobj_t *error = mif_last_error();
  return error != nullptr ? error->code : 0;
}

std::vector<std::uint32_t> ids_of(const ss_list &list) {
  std::vector<std::uint32_t> ids;
  for (const ss_t *ss : list.rows) ids.push_back(ss->ssid.word(1));
  return ids;
}

// A server that gives back one record for each id or time asked for.
fake_answer echo(std::uint32_t procedure, const std::string &args) {
  xdr_memory_reader in(args);
  arena page;
  std::vector<ss_t> records;
  if (procedure == MMDB_FETCHSS_IDS || procedure == MMDB_FETCHCVR_IDS) {
    mmdb_ids_args asked;
    xdr_get_args(in, page, asked);
    for (const ksui &id : asked.ids) records.push_back(sample_ss("mars", "/", 1, id.word(1)));
  } else if (procedure == MMDB_GET_SS_TIMES_CLIENT) {
    mmdb_client_times_args asked;
    xdr_get_args(in, page, asked);
    for (std::int64_t time : asked.times)
      records.push_back(sample_ss("mars", "/", time, static_cast<std::uint32_t>(time)));
  } else {
    return {RPC_PROCUNAVAIL, {}};
  }
  return {RPC_SUCCESS, ss_bytes(std::move(records))};
}

TEST(queries, long_lists_go_in_pieces) {
  struct {
    int line;
    std::size_t count;
    std::size_t calls;
  } rows[] = {
      {__LINE__, 1, 1},    {__LINE__, 500, 1}, {__LINE__, 501, 2},
      {__LINE__, 1001, 3}, {__LINE__, 0, 0},
  };
  for (const auto &row : rows) {
    SCOPED_TRACE(row.line);
    fake_server server;
    server.answer = echo;
    std::vector<ksui> ids;
    std::vector<std::int64_t> times;
    for (std::size_t i = 0; i < row.count; i++) {
      ids.push_back(ksui_from_number(static_cast<std::uint32_t>(i)));
      times.push_back(static_cast<std::int64_t>(i));
    }
    ss_list by_id = fetchss_ids(ids, true), by_time = fetchss_times("mars", times, true),
            covers = fetchcvr_ids(ids, false);
    for (const ss_list *list : {&by_id, &by_time, &covers}) {
      ASSERT_EQ(list->size(), row.count);
      for (std::size_t i = 0; i < row.count; i++) EXPECT_EQ(list->rows[i]->ssid.word(1), i);
    }
    EXPECT_EQ(server.calls(MMDB_FETCHSS_IDS), row.calls);
    EXPECT_EQ(server.calls(MMDB_FETCHCVR_IDS), row.calls);
    EXPECT_EQ(server.calls(MMDB_GET_SS_TIMES_CLIENT), row.calls);
    EXPECT_EQ(last_code(), 0);
  }
}

TEST(queries, a_piece_that_fails_fails_the_whole) {
  fake_server server;
  int call = 0;
  bool empty = false;
  server.answer = [&](std::uint32_t procedure, const std::string &args) {
    if (++call != 2) return echo(procedure, args);
    return fake_answer{RPC_SUCCESS, empty ? ss_bytes({}) : error_bytes(85002, "damaged")};
  };
  std::vector<ksui> ids(1200, ksui_from_number(1));
  EXPECT_TRUE(fetchss_ids(ids, true).empty());
  EXPECT_EQ(last_code(), 85002);
  EXPECT_EQ(call, 2);
  call = 0;
  empty = true;
  EXPECT_EQ(fetchss_ids(ids, true).size(), 700u);
}

TEST(queries, times_without_a_client_fall_back) {
  fake_server server;
  std::int64_t times[] = {5, 6};
  server.answer = echo;  // knows 55 but not 90
  EXPECT_EQ(fetchss_times({}, times, true).size(), 2u);
  EXPECT_THAT(server.log, ElementsAre("connect server", "ping", "90 times=[5,6] attrs=none full=1",
                                      "55 client=\"\" times=[5,6] full=1"));
  EXPECT_EQ(last_code(), 0);
  EXPECT_TRUE(ss_by_time_fetch({}, 5, true).empty());
  EXPECT_EQ(last_code(), 13022);
  EXPECT_EQ(mif_last_error()->text,
            "Cannot fetch a save set by savetime '5': no client host name is specified.");
}

// A database of save sets by time, served in pages of at most `page` records. Its `more` is 2 while
// the page ends inside a run of equal times, or always, and 1 otherwise.
struct paged_t {
  std::vector<ss_t> sets;
  std::size_t page = 3;
  bool always_two = false;
  std::size_t most_asked = 0;

  fake_answer operator()(std::uint32_t, const std::string &args) {
    xdr_memory_reader in(args);
    arena memory;
    ss_page_t asked;
    xdr_get_args(in, memory, asked);
    most_asked = std::max(most_asked, static_cast<std::size_t>(asked.range.mr_count));
    std::vector<ss_t> out;
    bool behind = asked.last.is_null();
    std::size_t at = 0;
    std::size_t limit = std::min(page, static_cast<std::size_t>(asked.range.mr_count));
    for (; at < sets.size() && out.size() < limit; at++) {
      auto time = static_cast<std::uint64_t>(sets[at].savetime);
      if (time < asked.range.mr_start_time || time > asked.range.mr_end_time) continue;
      if (!behind && time == asked.range.mr_start_time) {
        behind = sets[at].ssid == asked.last;
        continue;
      }
      out.push_back(sets[at]);
    }
    int more = 0;
    if (at < sets.size() && !out.empty())
      more = always_two || sets[at].savetime == out.back().savetime ? 2 : 1;
    return {RPC_SUCCESS, ss_bytes(std::move(out), more)};
  }
};

TEST(pages, runs_of_equal_times_are_neither_lost_nor_repeated) {
  for (std::size_t page : {1, 2, 3, 4, 7, 100}) {
    for (bool always_two : {false, true}) {
      SCOPED_TRACE(page);
      fake_server server;
      paged_t database;
      database.page = page;
      database.always_two = always_two;
      std::vector<std::uint32_t> wanted;
      std::uint32_t id = 1;
      for (std::int64_t time : {0, 0, 5, 5, 5, 5, 5, 5, 6, 8, 8, 9}) {
        wanted.push_back(id);
        database.sets.push_back(sample_ss("mars", "/", time, id++));
      }
      server.answer = std::ref(database);
      ss_page_t asked;
      int more = 9;
      EXPECT_EQ(ids_of(get_ss_page(asked, &more)), wanted);
      EXPECT_EQ(more, 0);
      EXPECT_EQ(last_code(), 0);
    }
  }
}

TEST(pages, counts) {
  struct {
    int line;
    std::int64_t count;
    std::vector<std::string> asked;  // the counts of the calls
    std::size_t records;
    int more;
  } rows[] = {
      {__LINE__, 0, {"8192", "8192", "8192"}, 20000, 0},
      {__LINE__, 1, {"1"}, 1, 1},
      {__LINE__, 8192, {"8192"}, 8192, 1},
      {__LINE__, 8193, {"8192", "1"}, 8193, 1},
      {__LINE__, 16384, {"8192", "8192"}, 16384, 1},
      {__LINE__, 30000, {"8192", "8192", "8192"}, 20000, 0},
  };
  paged_t database;
  database.page = 100000;
  for (std::uint32_t i = 0; i < 20000; i++)
    database.sets.push_back(sample_ss("mars", "/", 10 + i, i));
  for (const auto &row : rows) {
    SCOPED_TRACE(row.line);
    fake_server server;
    server.answer = std::ref(database);
    ss_page_t asked;
    asked.range.mr_count = row.count;
    int more = 9;
    EXPECT_EQ(get_ss_page(asked, &more).size(), row.records);
    EXPECT_EQ(more, row.more);
    std::vector<std::string> counts;
    for (const std::string &line : server.log) {
      std::size_t at = line.find("range=");
      if (at == std::string::npos) continue;
      EXPECT_NE(line.find("..9223372036854775807/"), std::string::npos);
      std::size_t slash = line.find('/', at);
      counts.push_back(line.substr(slash + 1, line.find(' ', slash) - slash - 1));
    }
    EXPECT_EQ(counts, row.asked);
  }
}

TEST(pages, what_more_means) {
  struct {
    int line;
    int sent;
    int got;
    std::size_t calls;
  } rows[] = {{__LINE__, 7, 0, 1}, {__LINE__, -1, 0, 1}, {__LINE__, 0, 0, 1}};
  for (const auto &row : rows) {
    SCOPED_TRACE(row.line);
    fake_server server;
    server.answer = [&](std::uint32_t, const std::string &) {
      ssr_reply reply;
      ss_t record = sample_ss("mars", "/", 5, 1);
      reply.status = MMDB_OK;
      reply.list.rows.push_back(&record);
      reply.ssr_more = row.sent;
      return fake_answer{RPC_SUCCESS, encoded(reply)};
    };
    int more = 9;
    EXPECT_EQ(get_ss_page({}, &more).size(), 1u);
    EXPECT_EQ(more, row.got);
    EXPECT_EQ(server.calls(MMDB_GET_SS_RANGE), row.calls);
  }
}

TEST(pages, a_server_that_does_not_go_on_is_given_up) {
  struct {
    int line;
    std::int64_t first, then;  // the save times that its pages end with
    int more;
  } rows[] = {
      {__LINE__, 5, 5, 2},
      {__LINE__, 5, 4, 2},
      {__LINE__, 5, 5, 1},
      {__LINE__, 5, -1, 1},
  };
  for (const auto &row : rows) {
    SCOPED_TRACE(row.line);
    fake_server server;
    int call = 0;
    server.answer = [&](std::uint32_t, const std::string &) {
      return fake_answer{
          RPC_SUCCESS,
          ss_bytes({sample_ss("mars", "/", call++ == 0 ? row.first : row.then, 1)}, row.more)};
    };
    EXPECT_TRUE(get_ss_page({}).empty());
    EXPECT_NE(last_code(), 0);
    EXPECT_EQ(call, 3);
  }
}

TEST(pages, an_error_on_any_page_leaves_nothing) {
  for (int bad = 1; bad <= 3; bad++) {
    for (bool twice : {false, true}) {
      SCOPED_TRACE(bad);
      fake_server server;
      int call = 0;
      server.answer = [&](std::uint32_t, const std::string &args) {
        call++;
        if (call == bad || (twice && call == bad + 1)) return fake_answer{RPC_CANTRECV, {}};
        paged_t database;
        for (std::uint32_t i = 1; i <= 9; i++)
          database.sets.push_back(sample_ss("mars", "/", i, i));
        return database(MMDB_GET_SS_RANGE, args);
      };
      ss_list list = get_ss_page({});
      EXPECT_EQ(list.size(), twice ? 0u : 9u);
      EXPECT_EQ(err_number(last_code()), twice ? RPC_CANTRECV : 0);
    }
  }
}

// The fan-out over all clients.
struct clients_t {
  std::string failing;
  bool lost = false;
  fake_answer operator()(std::uint32_t procedure, const std::string &args) {
    if (procedure == MMDB_GET_CLIENTS) {
      return {RPC_SUCCESS, ss_bytes({sample_ss("mars", "", 0, 1), sample_ss("", "", 0, 2),
                                     sample_ss("venus", "", 0, 3), sample_ss("empty", "", 0, 4)})};
    }
    xdr_memory_reader in(args);
    arena page;
    ss_query_t asked;
    xdr_get_args(in, page, asked);
    if (asked.client == failing) {
      if (lost) return {RPC_CANTRECV, {}};
      return {RPC_SUCCESS, error_bytes(85002, "damaged")};
    }
    if (asked.client == "mars")
      return {RPC_SUCCESS,
              ss_bytes({sample_ss("mars", "/", 1, 11), sample_ss("mars", "/", 2, 12)})};
    if (asked.client == "venus") return {RPC_SUCCESS, ss_bytes({sample_ss("venus", "/", 1, 31)})};
    return {RPC_SUCCESS, ss_bytes({})};
  }
};

TEST(fan_out, last_client_leads) {
  fake_server server;
  server.answer = clients_t();
  ss_query_t query;
  query.all = true;
  query.level = 1;
  query.full = true;
  EXPECT_THAT(ids_of(get_ss_query(query)), ElementsAre(31, 11, 12));
  EXPECT_EQ(server.calls(MMDB_GET_SS), 3u);
  EXPECT_NE(server.log.back().find("time=0 level=1 full=1"), std::string::npos);
  EXPECT_EQ(last_code(), 0);
}

TEST(fan_out, only_with_all_and_nothing_else) {
  struct {
    int line;
    ss_query_t query;
  } rows[] = {
      {__LINE__, {true, {}, {}, {}, 5, 0, false}},
      {__LINE__, {true, "mars", {}, {}, 0, 0, false}},
      {__LINE__, {true, {}, "/", {}, 0, 0, false}},
      {__LINE__, {false, {}, {}, {}, 0, 0, false}},
  };
  for (const auto &row : rows) {
    SCOPED_TRACE(row.line);
    fake_server server;
    server.answer = clients_t();
    get_ss_query(row.query);
    EXPECT_EQ(server.calls(MMDB_GET_CLIENTS), 0u);
    EXPECT_EQ(server.calls(MMDB_GET_SS), 1u);
  }
}

TEST(fan_out, a_client_that_fails_ends_it) {
  for (bool lost : {false, true}) {
    for (const char *failing : {"mars", "venus", "empty"}) {
      SCOPED_TRACE(failing);
      fake_server server;
      server.answer = clients_t{failing, lost};
      ss_query_t all;
      all.all = true;
      EXPECT_TRUE(get_ss_query(all).empty());
      EXPECT_EQ(err_number(last_code()), lost ? RPC_CANTRECV : 2);
      EXPECT_EQ(server.calls(MMDB_GET_CLIENTS), lost ? 2u : 1u);
    }
  }
}

std::string vol_bytes(std::vector<vol_t> vols) {
  vol_reply reply;
  reply.status = MMDB_OK;
  for (vol_t &vol : vols) reply.list.rows.push_back(&vol);
  return encoded(reply);
}

vol_t sample_vol(const ksui &id, std::string_view name) {
  vol_t vol;
  vol.volid = id;
  vol.volume = name;
  return vol;
}

TEST(volumes, arguments_of_each_question) {
  fake_server server;
  server.answer = [](std::uint32_t, const std::string &) {
    return fake_answer{RPC_SUCCESS, vol_bytes({sample_vol(ksui_from_number(1), "v"),
                                               sample_vol(ksui_from_number(2), "w")})};
  };
  EXPECT_EQ(get_vol_id(ksui_from_number(1), false).size(), 1u);
  EXPECT_EQ(get_vol_id_list(ksui_from_number(1), true).size(), 2u);
  get_vols_name({}, true);
  get_vols_family("disk", "", 1, 1, false);
  get_vols_pool("Default", 0, 0, true);
  get_vols_barcode("b", true);
  get_vols_location("shelf", true);
  server.log.erase(server.log.begin(), server.log.begin() + 2);
  EXPECT_THAT(server.log,
              ElementsAre("64 volid=1 full=0", "64 volid=1 full=1", "65 volume=\"\" full=1",
                          "63 family=\"disk\" type=\"\" flagmask=1 flags=1 full=0",
                          "68 pool=\"Default\" flagmask=0 flags=0 full=1",
                          "69 barcode=\"b\" full=1", "70 location=\"shelf\" range=0..0/0 full=1"));
}

TEST(volumes, bad_ones_are_dropped) {
  vol_t null = sample_vol({}, "n"), invalid = sample_vol(ksui_invalid(), "i"),
        good = sample_vol(ksui_from_number(3), "g");
  vol_list list;
  list.rows = {&null, &good, &invalid};
  drop_bad_vols(list);
  ASSERT_EQ(list.size(), 1u);
  EXPECT_EQ(list.rows[0], &good);
  list.rows = {&null, &invalid};
  drop_bad_vols(list);
  EXPECT_TRUE(list.empty());
}

struct volume_server {
  fake_server server;
  std::string name = "a volume with a name of some length";
  volume_server() {
    server.answer = [this](std::uint32_t, const std::string &args) {
      xdr_memory_reader in(args);
      arena page;
      mmdb_vol_id_args asked;
      xdr_get_args(in, page, asked);
      if (asked.volid.word(1) >= 1000) return fake_answer{RPC_SUCCESS, vol_bytes({})};
      return fake_answer{RPC_SUCCESS, vol_bytes({sample_vol(asked.volid, name)})};
    };
  }
  // How many calls it takes to have the volumes from `first` to `last`.
  std::size_t fetch(std::uint32_t first, std::uint32_t last) {
    std::size_t before = server.calls(MMDB_GET_VOL_ID);
    for (std::uint32_t id = first; id <= last; id++) {
      const vol_t *vol = cached_vol(ksui_from_number(id));
      if (vol == nullptr || vol->volid.word(1) != id || vol->volume != name) ADD_FAILURE() << id;
    }
    return server.calls(MMDB_GET_VOL_ID) - before;
  }
};

TEST(volume_cache, keeps_ten_by_default) {
  volume_server volumes;
  EXPECT_EQ(volumes.fetch(1, 10), 10u);
  EXPECT_EQ(volumes.fetch(1, 10), 0u);
  EXPECT_EQ(volumes.fetch(11, 11), 1u);
  // 10 was the head; ten steps of use moved the others about, one of them had to go.
  EXPECT_EQ(volumes.fetch(1, 11) > 0, true);
  EXPECT_EQ(mif_get().mif_vol_cache.size(), 10u);
}

// The order of the chain: a new record leads, a used one moves one step up, the last one goes.
TEST(volume_cache, order) {
  volume_server volumes;
  volumes.fetch(1, 10);                // 10 9 8 7 6 5 4 3 2 1
  volumes.fetch(1, 1);                 // 10 9 8 7 6 5 4 3 1 2
  volumes.fetch(11, 11);               // 11 10 9 8 7 6 5 4 3 1
  EXPECT_EQ(volumes.fetch(1, 1), 0u);  // ... 1 3
  volumes.fetch(12, 12);               // 3 went
  EXPECT_EQ(volumes.fetch(1, 1), 0u);
  EXPECT_EQ(volumes.fetch(3, 3), 1u);
}

TEST(volume_cache, without_a_limit_nothing_goes) {
  volume_server volumes;
  mif_set_cache_limit(MIF_CACHE_NO_LIMIT);
  EXPECT_EQ(volumes.fetch(1, 500), 500u);
  EXPECT_EQ(volumes.fetch(1, 500), 0u);
  EXPECT_EQ(cached_vol(ksui_from_number(2000)), nullptr);
  mif_set_cache_limit(3);
  EXPECT_EQ(mif_get().mif_cache_limit, 10u);
  EXPECT_EQ(volumes.fetch(1, 1), 1u);
}

TEST(save_set_cache, by_id_and_by_time) {
  fake_server server;
  server.answer = echo;
  const ss_t *set = cached_ss(ksui_from_number(77));
  ASSERT_NE(set, nullptr);
  EXPECT_EQ(cached_ss(set->ssid), set);
  EXPECT_EQ(server.calls(MMDB_FETCHCVR_IDS), 1u);
  const ss_t *timed = cached_ss("mars", 500);
  ASSERT_NE(timed, nullptr);
  EXPECT_EQ(cached_ss("mars", 500), timed);
  EXPECT_EQ(server.calls(MMDB_GET_SS_TIMES_CLIENT), 1u);
  EXPECT_EQ(cached_ss({}, 9), nullptr);
}

TEST(names, of_clients_and_save_sets) {
  fake_server server;
  server.answer = [](std::uint32_t, const std::string &args) {
    std::vector<ss_t> records = {sample_ss("venus", "/b", 0, 1), sample_ss("Mars", "/a", 0, 2),
                                 sample_ss("mars", "/B", 0, 3), sample_ss("venus", "/a", 0, 4)};
    for (ss_t &record : records) {
      record.clientid = ksui();
      if (record.client != "venus") record.clientid.set_word(0, KSUI_CLIENT);
    }
    (void)args;
    return fake_answer{RPC_SUCCESS, ss_bytes(std::move(records))};
  };
  attrlist clients = get_client_names();
  ASSERT_EQ(clients.size(), 2u);
  EXPECT_EQ(clients[0].name, "Mars");
  EXPECT_EQ(clients[1].name, "venus");
  EXPECT_EQ(clients[0].values[0].size(), KSUI_LONG_LENGTH);
  EXPECT_TRUE(clients[1].values.empty());
  EXPECT_THAT(get_save_names({}, {}), ElementsAre("Mars", "venus"));
  EXPECT_THAT(get_save_names("venus", {}), ElementsAre("/B", "/a", "/b"));
  EXPECT_EQ(server.log.back(), "58 client=\"venus\" name=\"\"");
}

TEST(history, arguments_and_records) {
  fake_server server;
  sampler s(2);
  hist_reply reply = s.reply<hist_reply>(3);
  server.answer = [&](std::uint32_t, const std::string &) {
    return fake_answer{RPC_SUCCESS, encoded(reply)};
  };
  history_query_t query;
  query.range = {0, 0x7fffffff, 1000};
  query.attrs = {{"change count", {"Yes"}}};
  EXPECT_EQ(get_history(query).size(), 3u);
  EXPECT_EQ(server.log.back(),
            "96 ssid=0 clone=0 range=0..2147483647/1000 attrs={change count:\"Yes\";} filter=none");
}

}  // namespace
}  // namespace qvr
