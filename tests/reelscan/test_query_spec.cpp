#include <gtest/gtest.h>

#include <ctime>
#include <string>

#include "field_catalogue.h"
#include "ks_clock.h"
#include "progname.h"
#include "query_spec.h"

using namespace qvr;

namespace {

constexpr std::int64_t NOW = 1721211930;  // 2024-07-17 10:25:30 UTC

// A stand-in for the translation of index names: it marks what it has seen.
std::string marked(std::string_view name) {
  return name.starts_with("index:") ? "id:" + std::string(name.substr(6)) : std::string(name);
}

// One node: key, comparator in hexadecimal, then what is not zero.
std::string dump(const query_constraints_t &list) {
  std::string text;
  char number[64];
  for (const query_constraint_t &node : list) {
    if (!text.empty()) text += "; ";
    std::snprintf(number, sizeof number, " %x", node.qc_cmp);
    text += std::string(node.qc_mr->mr_key) + number;
    auto put = [&](const char *name, std::uint64_t value) {
      if (value == 0) return;
      text += name + std::to_string(static_cast<std::int64_t>(value));
    };
    put(" lo ", node.qc_lo);
    put(" hi ", node.qc_hi);
    put(" eq ", node.qc_eqbits);
    for (const std::string &value : node.values) text += " [" + value + "]";
  }
  return text;
}

struct spec_row {
  int line;
  const char *text;
  const char *wanted;  // the list, or the refusal with "!" in front
};

class query_spec : public testing::Test {
 protected:
  void SetUp() override {
    setenv("TZ", "UTC", 1);
    tzset();
    ks_set_clock([] { return NOW; });
    ks_set_progname("reelscan");
  }
  void TearDown() override { ks_set_clock(nullptr); }

  static std::string result_of(const char *error, const query_constraints_t &list) {
    return error != nullptr ? std::string("!") + error : dump(list);
  }

  void check(std::initializer_list<spec_row> rows) {
    for (const spec_row &row : rows) {
      SCOPED_TRACE(row.line);
      query_constraints_t list;
      const char *error = parse_query_spec(row.text, list, marked);
      EXPECT_EQ(result_of(error, list), row.wanted) << row.text;
    }
  }
};

}  // namespace

TEST_F(query_spec, words_and_comparators) {
  check({
      {__LINE__, "", ""},
      {__LINE__, "   ", ""},
      {__LINE__, "  client = mars  ", "client 2 eq 1 [mars]"},
      {__LINE__, "CLIENT==mars", "client 2 eq 1 [mars]"},
      {__LINE__, "client=mars,", "client 2 eq 1 [mars]"},
      {__LINE__, "client=mars,  ", "client 2 eq 1 [mars]"},
      {__LINE__, "client=a, name=b", "name 2 eq 1 [b]; client 2 eq 1 [a]"},
      {__LINE__, "Bulk Harbor", "type 2 eq 1 [Bulk Harbor]"},
      {__LINE__, "  BulkHarbor", "type 2 eq 1 [Bulk Harbor]"},
      {__LINE__, "bulkharbor", "!unknown query constraint: bulkharbor"},
      {__LINE__, "not client=mars", "client 2 eq 1 [mars]"},
      {__LINE__, "! client=mars", "client 2 eq 1 [mars]"},
      {__LINE__, "client", "!need a value for query constraint `client'"},
      {__LINE__, "volflags", "!need a value for query constraint `volflags'"},
      {__LINE__, "volflags=x", "!constraint `volflags' is only valid for reports"},
      {__LINE__, "volflags!", "!constraint `volflags' is only valid for reports"},
      {__LINE__, "full<1", "!invalid comparator for query constraint `full'"},
      {__LINE__, "full!=t", "!invalid comparator for query constraint `full'"},
      {__LINE__, "client!=mars", "!invalid comparator for query constraint `client'"},
      {__LINE__, "client>mars", "!invalid comparator for query constraint `client'"},
      {__LINE__, "bogus=1", "!unknown query constraint: bogus"},
      {__LINE__, "not bogus =1", "!unknown query constraint: bogus"},
      {__LINE__, "=x", "!unknown query constraint: "},
      {__LINE__, "!", "!unknown query constraint: "},
      {__LINE__, "client=a,,name=b", "!unknown query constraint: ,name"},
      {__LINE__, "client=a,=b", "!unknown query constraint: =b"},
      {__LINE__, "client=a,x", "!unknown query constraint: x"},
      {__LINE__, "client\t=a", "!unknown query constraint: client\t"},
  });
  std::string longest(200, 'x');
  query_constraints_t list;
  EXPECT_EQ(std::string_view(parse_query_spec(longest, list, marked)).size(), 129u);
  EXPECT_EQ(parse_query_spec({}, list, marked), nullptr);
}

TEST_F(query_spec, texts) {
  check({
      {__LINE__, "name=a b  , client=c", "name 2 eq 1 [a b]; client 2 eq 1 [c]"},
      {__LINE__, "name='it''s'", "name 2 eq 1 [it's]"},
      {__LINE__, "name=\"a,b\" , client=c", "name 2 eq 1 [a,b]; client 2 eq 1 [c]"},
      {__LINE__, "name=\"it's \"", "name 2 eq 1 [it's ]"},
      {__LINE__, "name=it's", "name 2 eq 1 [it's]"},
      {__LINE__, "name=", "name 2 eq 1 []"},
      {__LINE__, "name=''", "name 2 eq 1 []"},
      {__LINE__, "name=index:mars", "name 2 eq 1 [id:mars]"},
      {__LINE__, "client=index:mars", "client 2 eq 1 [index:mars]"},
      {__LINE__, "name='abc", "!invalid value specified for `name'"},
      {__LINE__, "name='abc''", "!invalid value specified for `name'"},
      {__LINE__, "name='abc' x", "!invalid value specified for `name'"},
      {__LINE__, "ssid=123/456", "ssid 2 eq 1 [123/456]"},
      {__LINE__, "ssid=1,ssid=2", "!query constraint `ssid' specified more than once"},
      {__LINE__, "annotation=^a.*b$", "annotation 2 eq 1 [^a.*b$]"},
      {__LINE__, "annotation=\\(a\\)", "annotation 2 eq 1 [\\(a\\)]"},
      {__LINE__, "annotation=", "!invalid value specified for `annotation'"},
      {__LINE__, "annotation=[a", "!invalid value specified for `annotation'"},
      {__LINE__, "annotation=\\(a", "!invalid value specified for `annotation'"},
      {__LINE__, "client=a,client=b,client=c", "client 22 eq 1 [a] [b] [c]"},
      {__LINE__, "ssattr=*a", "ssattr 2 eq 1 [*a]"},
      {__LINE__, "ssattr!=*a", "ssattr 40 [*a]"},
      {__LINE__, "ssattr != *a", "ssattr 40 [*a]"},
      {__LINE__, "ssattr!", "ssattr 40 []"},
      {__LINE__, "ssattr=*a,ssattr!=*b", "ssattr c2 eq 1 [*a] [*b]"},
      {__LINE__, "ssattr!=*a,ssattr=*b,ssattr=*c", "ssattr c2 eq 6 [*a] [*b] [*c]"},
  });
  std::string many;
  for (int i = 0; i < 16; i++) many += "ssattr=a,";
  query_constraints_t list;
  EXPECT_EQ(parse_query_spec(many, list, marked), nullptr);
  EXPECT_EQ(list[0].qc_eqbits, 0xffff);
  EXPECT_STREQ(parse_query_spec("ssattr=a", list, marked),
               "too many ssattributes specified (> 16)");
}

TEST_F(query_spec, numbers_and_sizes) {
  check({
      {__LINE__, "mounts=5", "mounts 2 lo 5 eq 1"},
      {__LINE__, "mounts>5", "mounts 6 lo 6"},
      {__LINE__, "mounts<= 5 , client=a", "client 2 eq 1 [a]; mounts 3 hi 5"},
      {__LINE__, "mounts<5", "mounts 3 hi 4"},
      {__LINE__, "mounts<0", "!invalid value specified for `mounts'"},
      {__LINE__, "mounts>4294967294", "mounts 6 lo 4294967295"},
      {__LINE__, "mounts>4294967295", "!invalid value specified for `mounts'"},
      {__LINE__, "mounts=4294967296", "!invalid value specified for `mounts'"},
      {__LINE__, "mounts=-1", "!invalid value specified for `mounts'"},
      {__LINE__, "mounts=5x", "!invalid value specified for `mounts'"},
      {__LINE__, "mounts=", "!invalid value specified for `mounts'"},
      {__LINE__, "mounts=full", "!invalid value specified for `mounts'"},
      {__LINE__, "%used=FULL ", "%used 2 lo 101 eq 1"},
      {__LINE__, "%used>90", "%used 6 lo 91"},
      {__LINE__, "%used<full", "%used 3 hi 100"},
      {__LINE__, "next=18446744073709551614", "next 2 lo -2 eq 1"},
      {__LINE__, "next>18446744073709551615", "!invalid value specified for `next'"},
      {__LINE__, "next=18446744073709551616", "!invalid value specified for `next'"},
      {__LINE__, "written>1G", "written 6 lo 1000001"},
      {__LINE__, "written>1024", "written 6 lo 1025"},
      {__LINE__, "written=1 024 ", "written 2 lo 1024 eq 1"},
      {__LINE__, "written=2mb", "written 2 lo 2000 eq 1"},
      {__LINE__, "written=1.5", "written 2 lo 2 eq 1"},
      {__LINE__, "written=1.4K", "written 2 lo 1 eq 1"},
      {__LINE__, "written=1.000499M", "written 2 lo 1000 eq 1"},
      {__LINE__, "written=1.0005M", "written 2 lo 1001 eq 1"},
      {__LINE__, "written=0.000001E", "written 2 lo 1000000000 eq 1"},
      {__LINE__, "written=3T", "written 2 lo 3000000000 eq 1"},
      {__LINE__, "written=18446E", "written 2 lo -744073709551616 eq 1"},
      {__LINE__, "written=18447E", "!invalid value specified for `written'"},
      {__LINE__, "written=1.K", "!invalid value specified for `written'"},
      {__LINE__, "written=1.1234567K", "!invalid value specified for `written'"},
      {__LINE__, "written=1KBB", "!invalid value specified for `written'"},
      {__LINE__, "written=1T5", "!invalid value specified for `written'"},
      {__LINE__, "written=", "!invalid value specified for `written'"},
      {__LINE__, "written=0000000000000000000000000000001",
       "!invalid value specified for `written'"},
      {__LINE__, "written<0", "!invalid value specified for `written'"},
      {__LINE__, "totalsize>=1M", "totalsize 6 lo 1024000"},
      {__LINE__, "totalsize>1M", "totalsize 6 lo 1024001"},
      {__LINE__, "totalsize>=1024", "totalsize 6 lo 1024"},
      {__LINE__, "totalsize=18014398509481982K", "totalsize 2 lo -2048 eq 1"},
      {__LINE__, "totalsize=18014398509481983K", "!invalid value specified for `totalsize'"},
      {__LINE__, "totalsize=1 024", "!invalid value specified for `totalsize'"},
      {__LINE__, "totalsize=1.5", "!invalid value specified for `totalsize'"},
  });
}

TEST_F(query_spec, levels_times_durations) {
  check({
      {__LINE__, "level=full", "level 2 eq 1"},
      {__LINE__, "level=f", "level 2 eq 1"},
      {__LINE__, "level=9", "level 2 lo 9 eq 1"},
      {__LINE__, "level=INCR and more, client=a", "client 2 eq 1 [a]; level 2 lo 10 eq 1"},
      {__LINE__, "level=synth", "level 2 lo -9 eq 1"},
      {__LINE__, "level=manual", "level 2 lo -2 eq 1"},
      {__LINE__, "level=mig", "level 2 lo -3 eq 1"},
      {__LINE__, "level>9", "level 6 lo 10"},
      {__LINE__, "level<full", "level 3 hi -1"},
      {__LINE__, "level>incr", "!invalid value specified for `level'"},
      {__LINE__, "level<mig", "!invalid value specified for `level'"},
      {__LINE__, "level=skip", "!invalid value specified for `level'"},
      {__LINE__, "level=s", "!invalid value specified for `level'"},
      {__LINE__, "level=Manual", "!invalid value specified for `level'"},
      {__LINE__, "level=10", "!invalid value specified for `level'"},
      {__LINE__, "level=", "!invalid value specified for `level'"},
      {__LINE__, "level>exec,level<full", "level f lo -10 hi -1"},
      {__LINE__, "savetime>1/1/2020", "savetime 6 lo 1577836801"},
      {__LINE__, "savetime<'monday, 00:00'", "savetime 3 hi 1721606399"},
      {__LINE__, "savetime=yesterday", "savetime 2 lo 1721088000 eq 1"},
      {__LINE__, "savetime=forever", "savetime 2 lo 9223372036854775807 eq 1"},
      {__LINE__, "savetime>forever", "!invalid value specified for `savetime'"},
      {__LINE__, "savetime>2147483647", "!invalid value specified for `savetime'"},
      {__LINE__, "savetime=someday", "!invalid value specified for `savetime'"},
      {__LINE__, "ssretentdur>5 weeks", "ssretentdur 6 lo 3024001"},
      {__LINE__, "ssretentdur<now", "!invalid value specified for `ssretentdur'"},
      {__LINE__, "ssretentdur=5 weeks ago", "!invalid value specified for `ssretentdur'"},
      {__LINE__, "ssretentdur=5 weeks 14:30", "!invalid value specified for `ssretentdur'"},
      {__LINE__, "ssretentdur=forever", "!invalid value specified for `ssretentdur'"},
      {__LINE__, "ssretentdur=3000", "!invalid value specified for `ssretentdur'"},
  });
}

TEST_F(query_spec, bounds_and_keywords) {
  check({
      {__LINE__, "savetime>1/1/2020,savetime<1/2/2020", "savetime f lo 1577836801 hi 1577923199"},
      {__LINE__, "savetime<=1/2/2020,savetime>=1/1/2020", "savetime f lo 1577836800 hi 1577923200"},
      {__LINE__, "savetime>1/2/2020,savetime<1/1/2020",
       "!non-overlapping range specified for `savetime'"},
      {__LINE__, "savetime>1/1/2020,savetime>1/2/2020",
       "!query constraint `savetime' specified more than once"},
      {__LINE__, "savetime=1/1/2020,savetime>1/1/2020",
       "!query constraint `savetime' specified more than once"},
      {__LINE__, "savetime>1/1/2020,savetime=1/1/2020",
       "!query constraint `savetime' specified more than once"},
      {__LINE__, "savetime>1/1/2020,savetime<1/2/2020,savetime<1/3/2020",
       "!query constraint `savetime' specified more than once"},
      {__LINE__, "level>=mig,level<=full", "level f lo -3"},
      {__LINE__, "next>=1,next<=18446744073709551615", "next f lo 1 hi -1"},
      {__LINE__, "incomplete", "incomplete 10 lo 65536 hi 65536"},
      {__LINE__, "incomplete=true", "incomplete 10 lo 65536 hi 65536"},
      {__LINE__, "!incomplete", "incomplete 10 lo 65536"},
      {__LINE__, "Not incomplete", "incomplete 10 lo 65536"},
      {__LINE__, "incomplete= F ", "incomplete 10 lo 65536"},
      {__LINE__, "!incomplete=TRUE", "incomplete 10 lo 65536 hi 65536"},
      {__LINE__, "incomplete=tr", "!invalid value specified for `incomplete'"},
      {__LINE__, "incomplete=", "!invalid value specified for `incomplete'"},
      {__LINE__, "incomplete,!recoverable", "incomplete 10 lo 66048 hi 65536"},
      {__LINE__, "incomplete,!incomplete",
       "!query constraint `incomplete' specified more than once"},
      {__LINE__, "dedupe", "dedupe 10 hi 1"},
      {__LINE__, "!zirrel", "Zirrel 10"},
      {__LINE__, "dedupe,Zirrel", "!query constraint `Zirrel' specified more than once"},
      {__LINE__, "dedupe,rehydrated=f", "rehydrated 10; dedupe 10 hi 1"},
  });
}

TEST_F(query_spec, strong_keys_stand_in_front) {
  check({
      {__LINE__, "mounts=1,client=a,ssid=1,nfiles=2,volume=v,level=full",
       "ssid 2 eq 1 [1]; volume 2 eq 1 [v]; client 2 eq 1 [a]; level 2 eq 1; mounts 2 lo 1 eq 1; "
       "nfiles 2 lo 2 eq 1"},
      {__LINE__, "pool=p,volflags,client=a", "!need a value for query constraint `volflags'"},
  });
  query_constraints_t list;
  EXPECT_EQ(parse_query_spec("client=a", list, marked), nullptr);
  EXPECT_NE(parse_query_spec("name=b,bogus=1,pool=p", list, marked), nullptr);
  EXPECT_EQ(dump(list), "name 2 eq 1 [b]; client 2 eq 1 [a]");
}

TEST_F(query_spec, shortcuts) {
  static constexpr struct {
    int line;
    char option;
    const char *value;
    const char *wanted;
  } rows[] = {
      {__LINE__, 'c', "mars", "client 2 eq 1 [mars]"},
      {__LINE__, 'N', "/home, old", "name 2 eq 1 [/home, old]"},
      {__LINE__, 'N', " 'a,b'", "name 2 eq 1 [a,b]"},
      {__LINE__, 'N', "a,\"b\"", "!invalid value specified for `name'"},
      {__LINE__, 'N', "=x", "name 2 eq 1 [=x]"},
      {__LINE__, ' ', "mars.001", "volume 2 eq 1 [mars.001]"},
      {__LINE__, 't', "yesterday", "savetime 6 lo 1721088000"},
      {__LINE__, 't', "monday, 5 weeks ago", "savetime 6 lo 1718582400"},
      {__LINE__, 'T', "today", "endtime 3 hi 1721174400"},
      {__LINE__, 't', "bogus", "!invalid value specified for `savetime'"},
  };
  for (const auto &row : rows) {
    SCOPED_TRACE(row.line);
    query_constraints_t list;
    const char *error = parse_query_shortcut(row.option, row.value, list, marked);
    EXPECT_EQ(result_of(error, list), row.wanted);
  }
  query_constraints_t list;
  EXPECT_EQ(parse_query_shortcut('t', "yesterday", list, marked), nullptr);
  EXPECT_STREQ(parse_query_shortcut('t', "today", list, marked),
               "query constraint `savetime' specified more than once");
  EXPECT_EQ(parse_query_shortcut('N', std::string(1024, ','), list, marked), nullptr);
  EXPECT_STREQ(parse_query_shortcut('N', std::string(1025, 'x'), list, marked),
               "value of `name' is too long");
}
