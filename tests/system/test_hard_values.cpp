// Values that strain a table: wide characters, names that overrun their columns, times that are
// none, that are negative, and both that are forever.
#include <cstdio>

#include "small_catalogue.h"
#include "system_fixture.h"

namespace qvr::test {
namespace {

constexpr const char *CHANGES =
    "update volume set volume='磁帶.A' where id=1;"
    "update saveset set client='a.client.of.a.very.long.name', savetime=0 where id=11;"
    "update saveset set name='/日本語/データ', savetime=-5 where id=12;"
    "update saveset set savetime=2147483647, ssretent=0 where id=13;"
    "update saveset set savetime=9223372036854775807, totalsize=-1, nfiles=0 where id=14;";

struct value_row {
  int line;
  const char *locale;
  const char *words;
  const char *out;
};

TEST(hard_values, in_tables_and_exports) {
  char name[] = "/tmp/values-XXXXXX";
  const std::string directory = mkdtemp(name), file = directory + "/catalogue";
  std::string why = store_small_catalogue(file, CHANGES);
  auto site = installation::make({"--catalogue", file}, why);
  if (!site) GTEST_SKIP() << why;
  ASSERT_EQ(why, "");
  const value_row rows[] = {
      {__LINE__, "C.UTF-8", "-a",
       " volume        client       date      size   level  name\n"
       "TAPE.B         mars         forever  49 KB    full  /\n"
       "TAPE.B         vault          undef 977 KB    incr  /日本語/データ\n"
       "磁帶.A         a.client.of.a.very.long.name undef 977 KB full /\n"
       "磁帶.A         mars         forever  49 KB    full  /\n"
       "磁帶.A         vault          undef 1954 KB   incr  /日本語/データ\n"
       "磁帶.A         vault        forever  18 EB       9  bootstrap\n"},
      {__LINE__, "C.UTF-8", "-a -r volume,name,client,ssid",
       " volume        name                           client     ssid\n"
       "TAPE.B         /                              mars       13\n"
       "TAPE.B         /日本語/データ                 vault      12\n"
       "磁帶.A         /                              a.client.of.a.very.long.name 11\n"
       "磁帶.A         /                              mars       13\n"
       "磁帶.A         /日本語/データ                 vault      12\n"
       "磁帶.A         bootstrap                      vault      14\n"},
      {__LINE__, "C", "-a -r volume,name -xc|",
       "volume|name\n"
       "TAPE.B|/\n"
       "TAPE.B|/?\?\?/?\?\?\n"
       "?\?.A|/\n"
       "?\?.A|/\n"
       "?\?.A|/?\?\?/?\?\?\n"
       "?\?.A|bootstrap\n"},
      {__LINE__, "C.UTF-8", "-a -r volume,name -xc|",
       "volume|name\n"
       "TAPE.B|/\n"
       "TAPE.B|/日本語/データ\n"
       "磁帶.A|/\n"
       "磁帶.A|/\n"
       "磁帶.A|/日本語/データ\n"
       "磁帶.A|bootstrap\n"},
      {__LINE__, "C.UTF-8",
       "-a -r ssid,savetime(24),savetime,nsavetime,ssexp,clretent,totalsize,nfiles",
       " ssid            date     time       date     save time expires clretent       total "
       "nfiles\n"
       "13                          forever  forever 2147483647    undef    undef      50000   50\n"
       "12                       undefined     undef 18446744073709551611 02/01/26 02/01/26 "
       "3000000 3000\n"
       "11                       undefined     undef          0 01/01/27 01/01/27    1000000 1000\n"
       "13                          forever  forever 2147483647    undef    undef      50000   50\n"
       "12                       undefined     undef 18446744073709551611 02/01/26 02/01/26 "
       "3000000 3000\n"
       "14                          forever  forever 9223372036854775807 01/04/27 01/04/27 "
       "18446744073709551615 0\n"},
      {__LINE__, "C.UTF-8", "-a -I -r ssid,savetime(24)",
       " ssid            date     time\n"
       "13              2038-01-19T03:14:07\n"
       "12                       undefined \n"
       "11                       undefined \n"
       "13              2038-01-19T03:14:07\n"
       "12                       undefined \n"
       "14                -----no time-----\n"},
      {__LINE__, "C.UTF-8",
       "-a -q name='*QVR_OLD_FOREVER_TIME',name=/ -r ssid,savetime(30),savetime",
       " ssid               date     time          date\n"
       "11                             undefined     undef\n"
       "13            (Tue Jan 19 03:14:07 2038\n"
       ") 01/19/38\n"},
      {__LINE__, "C.UTF-8", "-S -q ssid=12",
       "ssid=12 savetime=undefined         (        -5) vault:/日本語/データ\n"
       "  level=incr   sflags=vrF      size=3000000      files=3000       insert=01/02/26\n"
       "  create=01/02/26 complete=01/02/26 browse=01/12/26 01:00:00 retent=02/01/26 01:00:00\n"
       "  Clone #1: cloneid=1767315600  time=01/02/26 01:00:00    retent=02/01/26  flags=\n"
       "    frag@         0 volid=         1 file/rec=       3/0     rn=0 last=01/03/26\n"
       "    frag@   2000000 volid=         2 file/rec=       1/0     rn=0 last=01/03/26\n"},
  };
  for (const value_row &row : rows) {
    SCOPED_TRACE(row.line);
    command_result result = site->run(words_of(row.words), {std::string("LC_ALL=") + row.locale});
    EXPECT_EQ(result.out, row.out);
    EXPECT_EQ(result.err, "");
    EXPECT_EQ(result.status, 0);
  }
  std::remove(file.c_str());
  std::remove(directory.c_str());
}

}  // namespace
}  // namespace qvr::test
