#include "mmdb_fixture.h"

namespace qvr::test {
namespace {

class mmdb_savesets : public mmdb_test {};

constexpr std::int64_t DAY = 86400;
const char *const IN_ORDER = " ORDER BY savetime, substr(ssid, 10)";

std::string with_attr(const char *name, const char *condition) {
  return std::string("id IN (SELECT saveset FROM saveset_attribute WHERE name = '") + name +
         "' AND value " + condition + ")";
}

TEST_F(mmdb_savesets, range_applies_every_argument) {
  std::int64_t from = LAB_NOW - 5 * DAY, to = LAB_NOW - 2 * DAY;
  std::string time = "savetime >= " + std::to_string(from);
  struct {
    int line;
    range_args args;
    std::string where;
  } rows[] = {
      {__LINE__, {}, "1"},
      {__LINE__, {.client = "mars"}, "client = 'mars'"},
      {__LINE__, {.client = "MARS"}, "client = 'mars'"},
      {__LINE__, {.client = "mar"}, "0"},
      {__LINE__, {.name = "/"}, "name = '/'"},
      {__LINE__, {.client = "saturn", .name = "/"}, "0"},
      {__LINE__, {.start = static_cast<std::uint64_t>(from)}, time},
      {__LINE__,
       {.start = static_cast<std::uint64_t>(from), .end = static_cast<std::uint64_t>(to)},
       time + " AND savetime <= " + std::to_string(to)},
      {__LINE__, {.start = static_cast<std::uint64_t>(from), .end = 0x7fffffffffffffff}, time},
      // The level is a limit: what lies below full counts too.
      {__LINE__, {.level = 1}, "level <= 0"},
      {__LINE__, {.level = 6}, "level <= 5"},
      {__LINE__, {.attrs = {{"GROUP", {"default"}}}}, with_attr("group", "= 'Default'")},
      {__LINE__, {.attrs = {{"group", {"nobody", "NDMP"}}}}, with_attr("group", "= 'NDMP'")},
      {__LINE__,
       {.attrs = {{"group", {"Default"}}, {"save set bundle", {"night shift"}}}},
       with_attr("group", "= 'Default'") + " AND " + with_attr("save set bundle", "NOT NULL")},
      {__LINE__,
       {.attrs = {{"Deviceless backup", {"Yes"}}}},
       with_attr("Deviceless backup", "= 'Yes'")},
      {__LINE__,
       {.filter = {{"annotation", {"box [0-9]* (m"}}}},
       with_attr("annotation", "LIKE '%, box % (M%'")},
      {__LINE__, {.filter = {{"annotation", {"^box"}}}}, "0"},
  };
  raw_client client = mmdb();
  for (const auto &row : rows) {
    SCOPED_TRACE(row.line);
    auto answer = savesets(client, 57, range(row.args));
    EXPECT_TRUE(answer->whole);
    EXPECT_EQ(answer->more, 0);
    ids_t wanted = sql("SELECT ssid FROM saveset WHERE " + row.where + IN_ORDER);
    EXPECT_EQ(answer->ids(), wanted);
    EXPECT_EQ(wanted.empty(), row.where == "0");
  }
}

// Follows a paged range to its end and gives what came, page by page.
TEST_F(mmdb_savesets, pages_lose_and_repeat_nothing) {
  ids_t all = sql(std::string("SELECT ssid FROM saveset") + IN_ORDER);
  // A filer's save sets share their second, and so do all clients' once a week.
  ASSERT_FALSE(sql("SELECT savetime FROM saveset GROUP BY 1 HAVING count(*) > 4").empty());
  for (int more : {1, 2}) {
    for (std::int64_t count : {1, 2, 7, 100, 8192}) {
      SCOPED_TRACE(testing::Message() << "more " << more << ", pages of " << count);
      lab_options options = test_options();
      options.catalogue = directory->file("catalogue");
      options.more = more;
      lab_installation paging;
      std::string why;
      ASSERT_TRUE(paging.start(options, why)) << why;
      raw_client client(paging.port("qvrmmdbd"), 390107, 6);
      range_args args{.count = count, .full = false};
      ids_t seen;
      for (int state = 2; state != 0;) {
        auto answer = savesets(client, 57, range(args));
        ASSERT_TRUE(answer->whole);
        ASSERT_LE(answer->savesets.size(), static_cast<std::size_t>(count));
        state = answer->more;
        ASSERT_TRUE(state == 0 || !answer->savesets.empty());
        for (const std::string &one : answer->ids()) seen.push_back(one);
        if (state == 0) break;
        const ss_t &last = answer->savesets.back();
        args.start = static_cast<std::uint64_t>(last.savetime) + (state == 1 ? 1 : 0);
        args.last = state == 1 ? ksui() : last.ssid;
      }
      EXPECT_EQ(seen, all);
    }
  }
}

TEST_F(mmdb_savesets, less_than_full_leaves_out_copies_only) {
  raw_client client = mmdb();
  auto whole = savesets(client, 57, range({}));
  auto head = savesets(client, 57, range({.full = false}));
  ASSERT_EQ(whole->savesets.size(), head->savesets.size());
  std::size_t copies = 0, attributes = 0;
  for (std::size_t i = 0; i < whole->savesets.size(); i++) {
    const ss_t &a = whole->savesets[i], &b = head->savesets[i];
    EXPECT_EQ(b.ncopies, 0u);
    EXPECT_EQ(a.attrs.series(), b.attrs.series());
    EXPECT_EQ(a.name, b.name);
    EXPECT_EQ(a.totalsize, b.totalsize);
    copies += a.ncopies;
    attributes += !a.attrs.empty();
  }
  EXPECT_EQ(std::to_string(copies), sql("SELECT count(*) FROM clone")[0]);
  EXPECT_EQ(std::to_string(attributes),
            sql("SELECT count(DISTINCT saveset) FROM saveset_attribute")[0]);
}

TEST_F(mmdb_savesets, ids_and_times_find_their_save_sets) {
  ids_t some = sql("SELECT ssid FROM saveset ORDER BY id LIMIT 7");
  ids_t old = sql("SELECT ssid FROM saveset WHERE ssid LIKE '%-00000003-%' LIMIT 1");
  ASSERT_FALSE(old.empty());
  raw_out full_ids, short_ids, old_id;
  full_ids.u32(8);
  short_ids.u32(7);
  for (const std::string &one : some) {
    full_ids.raw(raw_id(id(one)));
    ksui number;
    number.set_word(0, 1);
    number.set_word(1, id(one).word(1));
    short_ids.raw(raw_id(number));
  }
  full_ids.raw(std::string(20, '\x7f')).u32(1);
  short_ids.u32(1);
  // The last word does not count for an old id.
  ksui odd = id(old[0]);
  odd.set_word(4, 99);
  old_id.u32(1).raw(raw_id(odd)).u32(0);

  std::string shared =
      sql("SELECT savetime FROM saveset GROUP BY 1 ORDER BY count(*) DESC LIMIT 1")[0];
  std::string single =
      sql("SELECT savetime FROM saveset WHERE client = 'mars' GROUP BY 1 "
          "HAVING count(*) = 1 LIMIT 1")[0];
  auto times = [&](raw_out out) {
    return out.u32(2).u64(std::stoull(shared)).u64(std::stoull(single)).bytes;
  };
  std::string in_times = " WHERE savetime IN (" + shared + "," + single + ")";
  struct {
    int line;
    std::uint32_t procedure;
    std::string arguments;
    ids_t wanted;
  } rows[] = {
      {__LINE__, 53, full_ids.bytes, some},
      {__LINE__, 78, short_ids.bytes, some},
      {__LINE__, 53, old_id.bytes, old},
      {__LINE__, 53, raw_out().u32(0).u32(1).bytes, {}},
      {__LINE__, 90, times(raw_out()) + attrs({}) + raw_out().u32(1).bytes,
       sql("SELECT ssid FROM saveset" + in_times + IN_ORDER)},
      {__LINE__, 90, times(raw_out()) + attrs({{"group", {"NDMP"}}}) + raw_out().u32(1).bytes,
       sql("SELECT ssid FROM saveset" + in_times + " AND " + with_attr("group", "= 'NDMP'") +
           IN_ORDER)},
      {__LINE__, 55, times(raw_out().text("")) + raw_out().u32(1).bytes,
       sql("SELECT ssid FROM saveset" + in_times + IN_ORDER)},
      {__LINE__, 55, times(raw_out().text("mars")) + raw_out().u32(1).bytes,
       sql("SELECT ssid FROM saveset" + in_times + " AND client = 'mars'" + IN_ORDER)},
  };
  raw_client client = mmdb();
  for (const auto &row : rows) {
    SCOPED_TRACE(row.line);
    auto answer = savesets(client, row.procedure, row.arguments);
    EXPECT_TRUE(answer->whole);
    EXPECT_EQ(answer->ids(), row.wanted);
  }
}

TEST_F(mmdb_savesets, get_ss_gives_all_or_the_newest_before) {
  std::string newest = sql("SELECT max(savetime) FROM saveset WHERE client = 'mars'")[0];
  auto arguments = [](bool all, const char *client, const char *name, const std::string &time,
                      std::uint32_t level) {
    return raw_out()
        .u32(all)
        .text(client)
        .text(name)
        .u32(0)
        .u64(std::stoull(time))
        .u32(level)
        .u32(1)
        .bytes;
  };
  std::string mars = "SELECT ssid FROM saveset WHERE client = 'mars'";
  std::string backwards = " ORDER BY savetime DESC, substr(ssid, 10) DESC LIMIT 1";
  struct {
    int line;
    std::string arguments;
    ids_t wanted;
  } rows[] = {
      {__LINE__, arguments(true, "mars", "", "0", 0), sql(mars + IN_ORDER)},
      {__LINE__, arguments(true, "mars", "/home", "0", 0),
       sql(mars + " AND name = '/home'" + IN_ORDER)},
      {__LINE__, arguments(true, "mars", "", newest, 0),
       sql(mars + " AND savetime >= " + newest + IN_ORDER)},
      {__LINE__, arguments(true, "mars", "", "0", 1), sql(mars + " AND level <= 0" + IN_ORDER)},
      {__LINE__, arguments(false, "mars", "", "0", 0), sql(mars + backwards)},
      {__LINE__, arguments(false, "mars", "", newest, 0),
       sql(mars + " AND savetime < " + newest + backwards)},
      {__LINE__, arguments(false, "mars", "/nowhere", "0", 0), {}},
  };
  raw_client client = mmdb();
  for (const auto &row : rows) {
    SCOPED_TRACE(row.line);
    EXPECT_EQ(savesets(client, 54, row.arguments)->ids(), row.wanted);
  }
}

TEST_F(mmdb_savesets, clients_names_and_their_ids) {
  raw_client client = mmdb();
  auto clients = savesets(client, 58, raw_out().text("").text("").bytes);
  ids_t names, ids;
  for (const ss_t &ss : clients->savesets) {
    names.emplace_back(ss.client);
    ids.push_back(ksui_text(ss.clientid, ksui_form::long_form));
  }
  EXPECT_EQ(names, sql("SELECT name FROM client ORDER BY rowid"));
  EXPECT_EQ(ids, sql("SELECT clientid FROM client ORDER BY rowid"));
  names.clear();
  auto mars = savesets(client, 58, raw_out().text("mars").text("").bytes);
  for (const ss_t &ss : mars->savesets) names.emplace_back(ss.name);
  std::sort(names.begin(), names.end());
  EXPECT_EQ(names, sql("SELECT DISTINCT name FROM saveset WHERE client = 'mars' ORDER BY 1"));

  std::string null_id(20, '\0');
  struct {
    int line;
    std::string id, name;
    std::uint32_t status;
  } rows[] = {
      {__LINE__, null_id, "mars", 2},           {__LINE__, null_id, "Mars", 2},
      {__LINE__, raw_id(id(ids[1])), "", 2},    {__LINE__, null_id, "nobody", 32},
      {__LINE__, std::string(20, 'x'), "", 32}, {__LINE__, null_id, "", 32},
  };
  for (const auto &row : rows) {
    SCOPED_TRACE(row.line);
    raw_in in = client.call(76, raw_out().u32(1).raw(row.id).text(row.name).bytes).in();
    EXPECT_EQ(in.u32(), row.status);
    if (row.status == 2) {
      EXPECT_EQ(in.u32(), 1u);
      EXPECT_EQ(in.raw(20), raw_id(id(ids[1])));
      EXPECT_EQ(in.text(), "mars");
    }
    EXPECT_EQ(in.left(), 0u);
    EXPECT_TRUE(in.good);
  }
}

TEST_F(mmdb_savesets, refuses_what_it_does_not_have_or_cannot_read) {
  raw_client client = mmdb();
  for (std::uint32_t procedure : {50u, 56u, 60u, 72u, 93u, 99u, 500u})
    EXPECT_EQ(client.call(procedure).accept, 3u) << procedure;
  std::string good = range({});
  struct {
    int line;
    std::uint32_t procedure;
    std::string arguments;
  } rows[] = {
      {__LINE__, 53, raw_out().u32(0xffffffff).u32(0).bytes},
      {__LINE__, 55, raw_out().text("").u32(0x10000001).u32(0).bytes},
      {__LINE__, 57, good.substr(0, good.size() - 4)},
      {__LINE__, 58, raw_out().u32(0xfffffffb).bytes},
      {__LINE__, 57, raw_out().text("").text("").u32(1).text(std::string(65, 'n')).bytes},
      {__LINE__, 64, ""},
  };
  for (const auto &row : rows) {
    SCOPED_TRACE(row.line);
    EXPECT_EQ(client.call(row.procedure, row.arguments).accept, 4u);
  }
}

}  // namespace
}  // namespace qvr::test
