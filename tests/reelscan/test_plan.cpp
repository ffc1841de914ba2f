// The plan: what a report and its query lead to, without a server.

#include <gtest/gtest.h>

#include "plan.h"
#include "query_spec.h"
#include "report_spec.h"

namespace qvr {
namespace {

constexpr std::int64_t NOW = 1700000000;

query_constraints_t query(std::string_view text) {
  query_constraints_t list;
  EXPECT_EQ(parse_query_spec(text, list, [](std::string_view name) { return std::string(name); }),
            nullptr)
      << text;
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
  const char *report, *query;
  const char *plan;  // "key, score, road | request | what it carries | what is left to test"
};

TEST(plan, requests) {
  const road_row rows[] = {
      // Walks over volumes.
      {__LINE__, "volume", "",
       "0, score 0, volumes alone | volumes by name, lean | nothing | nothing"},
      {__LINE__, "savesets", "",
       "0, score 0, volume by volume | volumes by name, lean | nothing | nothing"},
      {__LINE__, DEFAULT, "",
       "0, score 0, volume by volume | volumes by name, lean | nothing | nothing"},
      {__LINE__, "volume", "volume=A",
       "150, score 0, volumes alone | volumes by name, volume 'A', lean | volume | volume"},
      {__LINE__, DEFAULT, "volume=A",
       "150, score 0, volume by volume | volumes by name, volume 'A', full | volume | volume"},
      {__LINE__, "volume", "volume=A,volume=B",
       "150, score 0, volumes alone | volumes by name, lean | nothing | volume"},
      {__LINE__, "volume", "location=L",
       "102, score 0, volumes alone | volumes by location, location 'L', lean | location | "
       "nothing"},
      {__LINE__, "volume",
       "location=", "0, score 0, volumes alone | volumes by name, lean | nothing | location"},
      {__LINE__, "volume", "location=L,location=M",
       "0, score 0, volumes alone | volumes by name, lean | nothing | location"},
      {__LINE__, "volume", "family=F,type=T",
       "106, score 0, volumes alone | volumes by family, family 'F', type 'T', lean | type, family "
       "| family"},
      {__LINE__, "volume", "pool=P,full",
       "114, score 0, volumes alone | volumes by pool, pool 'P', flags 1 = 1, lean | full, pool | "
       "nothing"},
      {__LINE__, "volume", "!full",
       "114, score 0, volumes alone | volumes by pool, flags 1 = 0, lean | full | full"},
      {__LINE__, "volume", "pool=P",
       "112, score 0, volumes alone | volumes by pool, pool 'P', lean | pool | pool"},
      {__LINE__, "volume", "barcode=B",
       "152, score 0, volumes alone | volumes by barcode, barcode 'B', lean | barcode | barcode"},
      {__LINE__, "volume", "barcode=B,barcode=C,pool=P",
       "112, score 0, volumes alone | volumes by pool, pool 'P', lean | pool | barcode, pool"},
      {__LINE__, "volume", "volid=17",
       "160, score 0, volumes alone | volumes by identifier, volid 17, lean | volid | volid"},
      {__LINE__, DEFAULT, "capacity>=5",
       "0, score 0, volume by volume | volumes by name, lean | nothing | capacity"},
      {__LINE__, DEFAULT, "occupiedvmdiskutil=x",
       "0, score 0, volume by volume | volumes by name, lean | nothing | occupiedvmdiskutil"},
      {__LINE__, DEFAULT, "client=a,client=b",
       "0, score 0, volume by volume | volumes by name, lean | nothing | client"},
      {__LINE__, DEFAULT,
       "group=", "0, score 0, volume by volume | volumes by name, lean | nothing | group"},
      // By attributes.
      {__LINE__, DEFAULT, "client=mars",
       "57, score 2, one request | save sets by attributes, client 'mars', full | client | client"},
      {__LINE__, DEFAULT, "name=/",
       "0, score 1, volume by volume | volumes by name, lean | nothing | name"},
      {__LINE__, "client, savetime", "name=/",
       "61, score 3, one request | save sets by attributes, name '/', lean | name | name"},
      {__LINE__, DEFAULT, "savetime>=1699913600",
       "51, score 2, one request | save sets by attributes, from 1699913600, full | savetime | "
       "savetime"},
      {__LINE__, DEFAULT, "savetime<=1700000000",
       "51, score 2, one request | save sets by attributes, to 1700000000, full | savetime | "
       "savetime"},
      {__LINE__, DEFAULT, "savetime>=1600000005,savetime<=1600000009,client=a,client=b",
       "57, score 2, one request | save sets by attributes, from 1600000005, to 1600000009, full | "
       "savetime | "
       "client, savetime"},
      {__LINE__, DEFAULT, "group=g,name=/",
       "61, score 2, one request | save sets by attributes, name '/', attribute \"group\" = 'g', "
       "full | name, group | name, group"},
      {__LINE__, DEFAULT, "annotation='twenty characters, ok'",
       "65, score 2, one request | save sets by attributes, filter \"annotation\" = 'twenty "
       "characters, ok', full | annotation | annotation"},
      {__LINE__, DEFAULT, "annotation=short,savetime>=1692224000",
       "65, score 2, one request | save sets by attributes, from 1692224000, filter \"annotation\" "
       "= 'short', full | annotation, savetime | annotation, savetime"},
      {__LINE__, DEFAULT, "annotation=short,savetime>=1692223999",
       "0, score 1, volume by volume | volumes by name, lean | nothing | annotation, savetime"},
      {__LINE__, DEFAULT, "level=full,name=/",
       "61, score 2, one request | save sets by attributes, name '/', level 1, full | name, level "
       "| name, level"},
      {__LINE__, DEFAULT, "level<=5,client=mars",
       "57, score 2, one request | save sets by attributes, client 'mars', level 6, full | client, "
       "level | client, level"},
      {__LINE__, DEFAULT, "level=incr,client=mars",
       "57, score 2, one request | save sets by attributes, client 'mars', full | client | client, "
       "level"},
      {__LINE__, DEFAULT, "level>=1,level<=5,client=mars",
       "57, score 2, one request | save sets by attributes, client 'mars', level 6, full | client "
       "| client, level"},
      {__LINE__, DEFAULT, "deviceless",
       "89, score 2, one request | save sets by attributes, attribute \"Deviceless backup\" = "
       "'Yes', full | deviceless | deviceless"},
      {__LINE__, DEFAULT, "!deviceless",
       "0, score 0, volume by volume | volumes by name, lean | nothing | deviceless"},
      {__LINE__, DEFAULT, "snap",
       "3, score 2, one request | save sets by attributes, full | nothing | snap"},
      {__LINE__, "name", "totalsize>=5",
       "5, score 2, one request | save sets by attributes, lean | nothing | totalsize"},
      {__LINE__, DEFAULT, "ssbundle=b,client=mars",
       "69, score 2, one request | save sets by attributes, client 'mars', attribute \"save set "
       "bundle\" = 'b', full | ssbundle, client | ssbundle, client"},
      // By name: no save set column.
      {__LINE__, "volume", "client=mars,level<=5",
       "57, score 2, one request | save sets by name, client 'mars', level 6, full | client | "
       "client, level"},
      {__LINE__, "volume", "client=mars,savetime>=1600000005,savetime<=1600000009",
       "0, score 2, volume by volume | volumes by name, lean | nothing | client, savetime"},
      // By key.
      {__LINE__, DEFAULT, "ssid=123,client=mars",
       "173, score 0, one request | save sets by identifier, ssid 123, full | ssid | client"},
      {__LINE__, "name", "savetime=1600000077",
       "171, score 0, one request | save sets by time, from 1600000077, to 1600000077, lean | "
       "nsavetime | nothing"},
      {__LINE__, "name", "savetime=1600000077,client=mars",
       "171, score 0, one request | save sets by time, client 'mars', from 1600000077, to "
       "1600000077, lean | "
       "client, nsavetime | nsavetime"},
      {__LINE__, "name", "savetime=1600000077,client=a,client=b",
       "171, score 0, one request | save sets by time, client 'a', client 'b', from 1600000077, to "
       "1600000077, "
       "lean | client, nsavetime | client"},
      {__LINE__, "name", "savetime=1600000077,ssid=5",
       "173, score 0, one request | save sets by identifier, ssid 5, lean | ssid | savetime"},
  };
  for (const road_row &row : rows) {
    SCOPED_TRACE(row.line);
    query_constraints_t constraints = query(row.query);
    std::vector<std::string> lines = plan_lines(plan_of(row.report, constraints), constraints);
    std::string told;
    for (std::size_t i = 1; i < lines.size(); i++) {
      static constexpr std::string_view heads[] = {"plan: key ", "plan: request ",
                                                   "plan: server applies ", "plan: left to test "};
      EXPECT_TRUE(lines[i].starts_with(heads[i - 1]));
      told += (i > 1 ? " | " : "") + lines[i].substr(heads[i - 1].size());
    }
    EXPECT_EQ(told, row.plan);
  }
}

TEST(plan, an_exact_full_takes_every_level_up_to_full) {
  query_constraints_t constraints = query("level=full,client=mars");
  plan_of(DEFAULT, constraints);
  EXPECT_EQ(constraints.back().qc_cmp, std::uint32_t{QC_EQUAL | QC_UPPER});
  EXPECT_EQ(constraints.back().qc_hi, 0u);
}

struct form_row {
  int line;
  const char *report;
  plan_facts_t facts;
  const char *query;
  bool per_fragment, keep_detail, volumes_needed;
};

TEST(plan, how_rows_are_formed) {
  const form_row rows[] = {
      {__LINE__, "name", {}, "", false, false, false},
      {__LINE__, "name", {.sort_order = "t"}, "", true, true, true},
      {__LINE__, "volume, name", {}, "", false, false, true},
      {__LINE__, "volume, name", {.sort_order = "mo"}, "", false, true, true},
      {__LINE__, "volume, mediafile", {.media_position_asked = true}, "", true, true, true},
      {__LINE__, "name, sumsize", {}, "", true, true, true},
      {__LINE__, "name, sumsize", {.sort_order = "mcntl"}, "", true, true, true},
      {__LINE__, "name", {}, "pool=x", false, false, true},
      {__LINE__, "name", {}, "volid=5", false, false, false},
      {__LINE__, "", {.linear = true}, "", false, false, false},
      {__LINE__, "", {.linear = true, .sort_order = "o"}, "", false, false, false},
      {__LINE__, "", {.bootstrap = true, .sort_order = "t"}, "", true, true, true},
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
