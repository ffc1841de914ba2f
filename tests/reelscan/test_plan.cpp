// The plan: what a report and its query lead to, without a server.

#include <gtest/gtest.h>

#include <algorithm>

#include "plan.h"
#include "records_for_test.h"
#include "report_spec.h"

namespace qvr {
namespace {

using namespace test;

constexpr std::int64_t NOW = 1700000000, DAY = 86400;

// As the query language orders them: codes above 49 in front, highest first.
query_constraints_t query(std::vector<query_constraint_t> given) {
  query_constraints_t list;
  for (query_constraint_t &qc : given) {
    auto at = list.end();
    if (qc.qc_mr->mr_id > 49) {
      at = std::find_if(list.begin(), list.end(), [&](const query_constraint_t &other) {
        return other.qc_mr->mr_id < qc.qc_mr->mr_id;
      });
    }
    list.insert(at, std::move(qc));
  }
  return list;
}

report_columns_t report(std::string_view spec) {
  report_columns_t columns;
  if (spec.empty()) return columns;
  EXPECT_EQ(parse_report_spec(spec, columns), nullptr) << spec;
  close_report(columns);
  return columns;
}

plan_t plan_of(std::string_view spec, query_constraints_t &constraints, plan_facts_t facts = {}) {
  facts.now = NOW;
  return make_plan(facts, constraints, report(spec));
}

constexpr const char *DEFAULT = "volume, client, savetime, sumsize, level(6), name";

struct need_row {
  int line;
  const char *report;
  const char *needs;  // as plan_lines tells them
};

TEST(plan, needs_of_columns) {
  const need_row rows[] = {
      {__LINE__, "volume, pool", "volumes; order \"m\""},
      {__LINE__, "volume, savesets", "volumes, save set counts; order \"m\""},
      {__LINE__, "name, client", "save sets; order \"mcntl\""},
      {__LINE__, "name, attrs", "save sets, detail; order \"mcntl\""},
      {__LINE__, "name, validcopies", "save sets, detail; order \"mcntl\""},
      {__LINE__, "cloneid", "save sets, detail, clones; order \"mcntl\""},
      {__LINE__, "name, clretent", "save sets, detail, clones; order \"mcntl\""},
      {__LINE__, "name, policy", "save sets, detail, clones; order \"mcntl\""},
      {__LINE__, "name, sumsize", "save sets, detail, fragment rows; order \"mocntl\""},
      {__LINE__, "name, mediafile",
       "save sets, detail, fragment rows, each fragment; order \"mocntl\""},
      {__LINE__, "volume, mediafile", "volumes, save sets, detail, each fragment; order \"mcntl\""},
      {__LINE__, DEFAULT, "volumes, save sets, detail; order \"mcntl\""},
  };
  for (const need_row &row : rows) {
    SCOPED_TRACE(row.line);
    query_constraints_t none;
    EXPECT_EQ(plan_lines(plan_of(row.report, none), none)[0],
              std::string("plan: needs ") + row.needs);
  }
  query_constraints_t none;
  EXPECT_EQ(plan_of("space, newline", none).road, plan_road::nothing);
  EXPECT_EQ(plan_of("", none, {.bootstrap = true, .sort_order = "t"}).road,
            plan_road::fetch_of_rows);
  EXPECT_EQ(plan_of("", none, {.bootstrap = true, .sort_order = "m"}).road,
            plan_road::fetch_of_rows);
  EXPECT_EQ(plan_of("", none, {.linear = true}).road, plan_road::fetch_by_volume);
  EXPECT_EQ(plan_of("name", none, {.sort_order = "tR"}).sort_sign, -1);
  EXPECT_TRUE(plan_of("name", none, {.sort_order = "mo"}).needs.detail);
}

struct road_row {
  int line;
  const char *report;
  std::vector<query_constraint_t> query;
  const char *key;      // "key K, score S, road"
  const char *request;  // without "plan: request "
  const char *applied, *left;
};

TEST(plan, requests) {
  const road_row rows[] = {
      // Walks over volumes.
      {__LINE__,
       "volume",
       {},
       "0, score 0, volumes alone",
       "volumes by name, lean",
       "nothing",
       "nothing"},
      {__LINE__,
       "savesets",
       {},
       "0, score 0, volume by volume",
       "volumes by name, lean",
       "nothing",
       "nothing"},
      {__LINE__,
       DEFAULT,
       {},
       "0, score 0, volume by volume",
       "volumes by name, lean",
       "nothing",
       "nothing"},
      {__LINE__,
       "volume",
       {text_is("volume", {"A"})},
       "150, score 0, volumes alone",
       "volumes by name, volume 'A', lean",
       "volume",
       "volume"},
      {__LINE__,
       DEFAULT,
       {text_is("volume", {"A"})},
       "150, score 0, volume by volume",
       "volumes by name, volume 'A', full",
       "volume",
       "volume"},
      {__LINE__,
       "volume",
       {text_is("volume", {"A", "B"})},
       "150, score 0, volumes alone",
       "volumes by name, lean",
       "nothing",
       "volume"},
      {__LINE__,
       "volume",
       {text_is("location", {"L"})},
       "102, score 0, volumes alone",
       "volumes by location, location 'L', lean",
       "location",
       "nothing"},
      {__LINE__,
       "volume",
       {text_is("location", {""})},
       "0, score 0, volumes alone",
       "volumes by name, lean",
       "nothing",
       "location"},
      {__LINE__,
       "volume",
       {text_is("location", {"L", "M"})},
       "0, score 0, volumes alone",
       "volumes by name, lean",
       "nothing",
       "location"},
      {__LINE__,
       "volume",
       {text_is("family", {"F"}), text_is("type", {"T"})},
       "106, score 0, volumes alone",
       "volumes by family, family 'F', type 'T', lean",
       "type, family",
       "family"},
      {__LINE__,
       "volume",
       {text_is("pool", {"P"}), keyword("full")},
       "114, score 0, volumes alone",
       "volumes by pool, pool 'P', flags 1 = 1, lean",
       "full, pool",
       "nothing"},
      {__LINE__,
       "volume",
       {keyword("full", false)},
       "114, score 0, volumes alone",
       "volumes by pool, flags 1 = 0, lean",
       "full",
       "full"},
      {__LINE__,
       "volume",
       {text_is("pool", {"P"})},
       "112, score 0, volumes alone",
       "volumes by pool, pool 'P', lean",
       "pool",
       "pool"},
      {__LINE__,
       "volume",
       {text_is("barcode", {"B"})},
       "152, score 0, volumes alone",
       "volumes by barcode, barcode 'B', lean",
       "barcode",
       "barcode"},
      {__LINE__,
       "volume",
       {text_is("barcode", {"B", "C"}), text_is("pool", {"P"})},
       "112, score 0, volumes alone",
       "volumes by pool, pool 'P', lean",
       "pool",
       "barcode, pool"},
      {__LINE__,
       "volume",
       {text_is("volid", {"17"})},
       "160, score 0, volumes alone",
       "volumes by identifier, volid 17, lean",
       "volid",
       "volid"},
      {__LINE__,
       DEFAULT,
       {at_least("capacity", 5)},
       "0, score 0, volume by volume",
       "volumes by name, lean",
       "nothing",
       "capacity"},
      {__LINE__,
       DEFAULT,
       {text_is("occupiedvmdiskutil", {"x"})},
       "0, score 0, volume by volume",
       "volumes by name, lean",
       "nothing",
       "occupiedvmdiskutil"},
      {__LINE__,
       DEFAULT,
       {text_is("client", {"a", "b"})},
       "0, score 0, volume by volume",
       "volumes by name, lean",
       "nothing",
       "client"},
      {__LINE__,
       DEFAULT,
       {text_is("group", {""})},
       "0, score 0, volume by volume",
       "volumes by name, lean",
       "nothing",
       "group"},

      // By attributes.
      {__LINE__,
       DEFAULT,
       {text_is("client", {"mars"})},
       "57, score 2, one request",
       "save sets by attributes, client 'mars', full",
       "client",
       "client"},
      {__LINE__,
       DEFAULT,
       {text_is("name", {"/"})},
       "0, score 1, volume by volume",
       "volumes by name, lean",
       "nothing",
       "name"},
      {__LINE__,
       "client, savetime",
       {text_is("name", {"/"})},
       "61, score 3, one request",
       "save sets by attributes, name '/', lean",
       "name",
       "name"},
      {__LINE__,
       DEFAULT,
       {at_least("savetime", NOW - DAY)},
       "51, score 2, one request",
       "save sets by attributes, from 1699913600, full",
       "savetime",
       "savetime"},
      {__LINE__,
       DEFAULT,
       {at_most("savetime", NOW)},
       "51, score 2, one request",
       "save sets by attributes, to 1700000000, full",
       "savetime",
       "savetime"},
      {__LINE__,
       DEFAULT,
       {between("savetime", 5, 9), text_is("client", {"a", "b"})},
       "57, score 2, one request",
       "save sets by attributes, from 5, to 9, full",
       "savetime",
       "client, savetime"},
      {__LINE__,
       DEFAULT,
       {text_is("group", {"g"}), text_is("name", {"/"})},
       "61, score 2, one request",
       "save sets by attributes, name '/', attribute \"group\" = 'g', full",
       "name, group",
       "name, group"},
      {__LINE__,
       DEFAULT,
       {text_is("annotation", {"twenty characters, ok"})},
       "65, score 2, one request",
       "save sets by attributes, filter \"annotation\" = 'twenty characters, ok', full",
       "annotation",
       "annotation"},
      {__LINE__,
       DEFAULT,
       {text_is("annotation", {"short"}), at_least("savetime", NOW - 90 * DAY)},
       "65, score 2, one request",
       "save sets by attributes, from 1692224000, filter \"annotation\" = 'short', full",
       "annotation, savetime",
       "annotation, savetime"},
      {__LINE__,
       DEFAULT,
       {text_is("annotation", {"short"}), at_least("savetime", NOW - 90 * DAY - 1)},
       "0, score 1, volume by volume",
       "volumes by name, lean",
       "nothing",
       "annotation, savetime"},
      {__LINE__,
       DEFAULT,
       {number_is("level", 0), text_is("name", {"/"})},
       "61, score 2, one request",
       "save sets by attributes, name '/', level 1, full",
       "name, level",
       "name, level"},
      {__LINE__,
       DEFAULT,
       {at_most("level", 5), text_is("client", {"mars"})},
       "57, score 2, one request",
       "save sets by attributes, client 'mars', level 6, full",
       "client, level",
       "client, level"},
      {__LINE__,
       DEFAULT,
       {number_is("level", 10), text_is("client", {"mars"})},
       "57, score 2, one request",
       "save sets by attributes, client 'mars', full",
       "client",
       "client, level"},
      {__LINE__,
       DEFAULT,
       {between("level", 1, 5), text_is("client", {"mars"})},
       "57, score 2, one request",
       "save sets by attributes, client 'mars', level 6, full",
       "client",
       "client, level"},
      {__LINE__,
       DEFAULT,
       {attr_keyword("deviceless", true)},
       "89, score 2, one request",
       "save sets by attributes, attribute \"Deviceless backup\" = 'Yes', full",
       "deviceless",
       "deviceless"},
      {__LINE__,
       DEFAULT,
       {attr_keyword("deviceless", false)},
       "0, score 0, volume by volume",
       "volumes by name, lean",
       "nothing",
       "deviceless"},
      {__LINE__,
       DEFAULT,
       {keyword("snap")},
       "3, score 2, one request",
       "save sets by attributes, full",
       "nothing",
       "snap"},
      {__LINE__,
       "name",
       {at_least("totalsize", 5)},
       "5, score 2, one request",
       "save sets by attributes, lean",
       "nothing",
       "totalsize"},
      {__LINE__,
       DEFAULT,
       {text_is("ssbundle", {"b"}), text_is("client", {"mars"})},
       "69, score 2, one request",
       "save sets by attributes, client 'mars', attribute \"save set bundle\" = 'b', full",
       "ssbundle, client",
       "ssbundle, client"},

      // By name: no save set column.
      {__LINE__,
       "volume",
       {text_is("client", {"mars"}), at_most("level", 5)},
       "57, score 2, one request",
       "save sets by name, client 'mars', level 6, full",
       "client",
       "client, level"},
      {__LINE__,
       "volume",
       {text_is("client", {"mars"}), between("savetime", 5, 9)},
       "0, score 0, volumes alone",
       "",
       "",
       ""},

      // By key.
      {__LINE__,
       DEFAULT,
       {text_is("ssid", {"123"}), text_is("client", {"mars"})},
       "173, score 0, one request",
       "save sets by identifier, ssid 123, full",
       "ssid",
       "client"},
      {__LINE__,
       "name",
       {number_is("savetime", 77)},
       "171, score 0, one request",
       "save sets by time, from 77, to 77, lean",
       "nsavetime",
       "nothing"},
      {__LINE__,
       "name",
       {number_is("savetime", 77), text_is("client", {"mars"})},
       "171, score 0, one request",
       "save sets by time, client 'mars', from 77, to 77, lean",
       "client, nsavetime",
       "nsavetime"},
      {__LINE__,
       "name",
       {number_is("savetime", 77), text_is("client", {"a", "b"})},
       "171, score 0, one request",
       "save sets by time, client 'a', client 'b', from 77, to 77, lean",
       "client, nsavetime",
       "client"},
      {__LINE__,
       "name",
       {number_is("savetime", 77), text_is("ssid", {"5"})},
       "173, score 0, one request",
       "save sets by identifier, ssid 5, lean",
       "ssid",
       "savetime"},
  };
  for (const road_row &row : rows) {
    SCOPED_TRACE(row.line);
    query_constraints_t constraints = query(row.query);
    plan_t plan = plan_of(row.report, constraints);
    std::vector<std::string> lines = plan_lines(plan, constraints);
    if (row.request[0] == '\0') {
      EXPECT_NE(plan.road, plan_road::key_query);
      continue;
    }
    EXPECT_EQ(lines[1], std::string("plan: key ") + row.key);
    EXPECT_EQ(lines[2], std::string("plan: request ") + row.request);
    EXPECT_EQ(lines[3], std::string("plan: server applies ") + row.applied);
    EXPECT_EQ(lines[4], std::string("plan: left to test ") + row.left);
  }
}

TEST(plan, an_exact_full_takes_every_level_up_to_full) {
  query_constraints_t constraints = query({number_is("level", 0), text_is("client", {"mars"})});
  plan_of(DEFAULT, constraints);
  EXPECT_EQ(constraints.back().qc_cmp, std::uint32_t{QC_EQUAL | QC_UPPER});
  EXPECT_EQ(constraints.back().qc_hi, 0u);
}

struct form_row {
  int line;
  const char *report;
  plan_facts_t facts;
  std::vector<query_constraint_t> query;
  bool per_fragment, keep_detail, volumes_needed;
};

TEST(plan, how_rows_are_formed) {
  const form_row rows[] = {
      {__LINE__, "name", {}, {}, false, false, false},
      {__LINE__, "name", {.sort_order = "t"}, {}, true, true, true},
      {__LINE__, "volume, name", {}, {}, false, false, true},
      {__LINE__, "volume, name", {.sort_order = "mo"}, {}, false, true, true},
      {__LINE__, "volume, mediafile", {.media_position_asked = true}, {}, true, true, true},
      {__LINE__, "name, sumsize", {}, {}, true, true, true},
      {__LINE__, "name, sumsize", {.sort_order = "mcntl"}, {}, true, true, true},
      {__LINE__, "name", {}, {text_is("pool", {"x"})}, false, false, true},
      {__LINE__, "name", {}, {text_is("volid", {"5"})}, false, false, false},
      {__LINE__, "", {.linear = true}, {}, false, false, false},
      {__LINE__, "", {.linear = true, .sort_order = "o"}, {}, false, false, false},
      {__LINE__, "", {.bootstrap = true, .sort_order = "t"}, {}, true, true, true},
  };
  for (const form_row &row : rows) {
    SCOPED_TRACE(row.line);
    query_constraints_t constraints = query(row.query);
    plan_t plan = plan_of(row.report, constraints, row.facts);
    EXPECT_EQ(plan.per_fragment, row.per_fragment);
    EXPECT_EQ(plan.keep_detail, row.keep_detail);
    EXPECT_EQ(plan.volumes_needed, row.volumes_needed);
  }
}

}  // namespace
}  // namespace qvr
