// Whole reports over a small catalogue, and the calls that they make on the media database.

#include <cstdio>
#include <fstream>
#include <map>

#include "small_catalogue.h"
#include "system_fixture.h"

namespace qvr::test {
namespace {

class reports : public testing::Test {
 protected:
  static void SetUpTestSuite() {
    char name[] = "/tmp/reports-XXXXXX";
    directory() = mkdtemp(name);
    const std::string file = directory() + "/catalogue";
    why() = store_small_catalogue(file);
    if (why().empty()) {
      site() = installation::make({"--catalogue", file, "--log", directory() + "/log"}, why());
    }
  }
  static void TearDownTestSuite() {
    site().reset();
    for (const char *file : {"/catalogue", "/log"}) std::remove((directory() + file).c_str());
    std::remove(directory().c_str());
  }
  void SetUp() override {
    if (!site()) GTEST_SKIP() << why();
    ASSERT_EQ(why(), "");
  }

  // The procedures called on the media database since the last look: number and how often, in the
  // order of their first call.
  static std::string calls() {
    std::ifstream log(directory() + "/log");
    log.seekg(static_cast<std::streamoff>(seen()));
    std::vector<std::string> order;
    std::map<std::string, int> counts;
    for (std::string line; std::getline(log, line);) {
      seen() += line.size() + 1;
      if (line.find("\"daemon\":\"qvrmmdbd\"") == line.npos) continue;
      std::size_t at = line.find("\"proc\":");
      if (at == line.npos || line.find("\"event\":\"call\"") == line.npos) continue;
      std::string number = line.substr(at + 7, line.find(',', at) - at - 7);
      if (number == "0") continue;
      if (counts[number]++ == 0) order.push_back(number);
    }
    std::string text;
    for (const std::string &number : order) {
      text += (text.empty() ? "" : " ") + number;
      if (counts[number] > 1) text += "*" + std::to_string(counts[number]);
    }
    return text;
  }

  static std::unique_ptr<installation> &site() {
    static std::unique_ptr<installation> made;
    return made;
  }
  static std::string &why() {
    static std::string reason;
    return reason;
  }
  static std::string &directory() {
    static std::string path;
    return path;
  }
  static std::size_t &seen() {
    static std::size_t bytes = 0;
    return bytes;
  }
};

struct report_row {
  int line;
  const char *words;
  const char *calls;
  const char *out;
};

constexpr const char *NO_MATCHES = "6095:reelscan: no matches found for the query\n";

TEST_F(reports, predefined_reports_over_everything) {
  const report_row rows[] = {
      {__LINE__, "-a", "65 64*3 53*2",
       " volume        client       date      size   level  name\n"
       "TAPE.A         mars        01/03/26  49 KB    full  /\n"
       "TAPE.A         vault       01/01/26 977 KB    full  /\n"
       "TAPE.A         vault       01/02/26 1954 KB   incr  /home\n"
       "TAPE.A         vault       01/04/26  20 KB       9  bootstrap\n"
       "TAPE.B         mars        01/03/26  49 KB    full  /\n"
       "TAPE.B         vault       01/02/26 977 KB    incr  /home\n"},
      {__LINE__, "-m", "65",
       " state volume                  written  (%)  expires     read mounts capacity\n"
       "       TAPE.A                   500 MB  50%  01/01/27    0 KB     3   1000 MB\n"
       "       TAPE.B                   999 MB full  01/01/27    0 KB     3   1000 MB\n"
       "       disk.C                     0 KB   0%  01/01/27    0 KB     3     20 GB\n"},
      {__LINE__, "-m -v", "65",
       " state volume                  written  (%)  expires     read mounts capacity volid      "
       "next type\n"
       "       TAPE.A                   500 MB  50%  01/01/27    0 KB     3   1000 MB 1            "
       " 6 LTO\n"
       "       TAPE.B                   999 MB full  01/01/27    0 KB     3   1000 MB 2            "
       " 6 LTO\n"
       "       disk.C                     0 KB   0%  01/01/27    0 KB     3     20 GB 3            "
       " 6 adv_file\n"},
      {__LINE__, "-m -V", "65",
       " state volume                  written  (%)  expires     read mounts capacity flags\n"
       "       TAPE.A                   500 MB  50%  01/01/27    0 KB     3   1000 MB \n"
       "       TAPE.B                   999 MB full  01/01/27    0 KB     3   1000 MB \n"
       "       disk.C                     0 KB   0%  01/01/27    0 KB     3     20 GB r\n"},
      {__LINE__, "-p -a", "65 64*3 53*2",
       "  date    browse   retent    ssid       client      name                           "
       "vm_name\n"
       " 01/03/26 01/13/26 02/07/06  13         mars        /                              web1\n"
       " 01/01/26 01/11/26 01/01/27  11         vault       /                              \n"
       " 01/02/26 01/12/26 02/01/26  12         vault       /home                          \n"
       " 01/04/26 01/14/26 01/04/27  14         vault       bootstrap                      \n"
       " 01/03/26 01/13/26 02/07/06  13         mars        /                              web1\n"
       " 01/02/26 01/12/26 02/01/26  12         vault       /home                          \n"},
      {__LINE__, "-v -a", "65 64*3 53*2",
       " volume        type   client           date     time         size ssid      fl   lvl name\n"
       "TAPE.A         LTO    mars              01/03/26 01:00:00   49 KB 13        cr  full /\n"
       "TAPE.A         LTO    vault             01/01/26 01:00:00  977 KB 11        cr  full /\n"
       "TAPE.A         LTO    vault             01/02/26 01:00:00 1954 KB 12        hr  incr "
       "/home\n"
       "TAPE.A         LTO    vault             01/04/26 01:00:00   20 KB 14        cr     9 "
       "bootstrap\n"
       "TAPE.B         LTO    mars              01/03/26 01:00:00   49 KB 13        cr  full /\n"
       "TAPE.B         LTO    vault             01/02/26 01:00:00  977 KB 12        tr  incr "
       "/home\n"},
      {__LINE__, "-V -a", "65 64*3 53*2",
       " volume             client             size level name\n"
       " ssid         save time      date     time       browse  clretent\n"
       "      first       last file  rec volid           total fl\n"
       "TAPE.A              mars              49 KB  full /\n"
       " 13          1767402000       01/03/26 01:00:00  01/13/26  forever\n"
       "          0      49999    4    0 1               50000 cr\n"
       "TAPE.A              vault            977 KB  full /\n"
       " 11          1767229200       01/01/26 01:00:00  01/11/26 01/01/27\n"
       "          0     999999    2   10 1             1000000 cr\n"
       "TAPE.A              vault           1954 KB  incr /home\n"
       " 12          1767315600       01/02/26 01:00:00  01/12/26 02/01/26\n"
       "          0    1999999    3    0 1             3000000 hr\n"
       "TAPE.A              vault             20 KB     9 bootstrap\n"
       " 14          1767488400       01/04/26 01:00:00  01/14/26 01/04/27\n"
       "          0      19999    5    3 1               20000 cr\n"
       "TAPE.B              mars              49 KB  full /\n"
       " 13          1767402000       01/03/26 01:00:00  01/13/26  forever\n"
       "          0      49999    2    7 2               50000 cr\n"
       "TAPE.B              vault            977 KB  incr /home\n"
       " 12          1767315600       01/02/26 01:00:00  01/12/26 02/01/26\n"
       "    2000000    2999999    1    0 2             3000000 tr\n"},
      {__LINE__, "-k -a", "65 64*3 53*2",
       " volume        type   vm_name         date     time         size ssid      fl backup_size\n"
       "TAPE.A         LTO    web1             01/03/26 01:00:00   49 KB 13        cr   49 KB\n"
       "TAPE.B         LTO    web1             01/03/26 01:00:00   49 KB 13        cr   49 KB\n"},
      {__LINE__, "-B -a", "65 64*3 53*2",
       "      date     time       ssid         file record volume barcode location\n"
       "       01/04/26 01:00:00  14              5     3  TAPE.A A00001 Shelf 1\n"},
      {__LINE__, "-S -a", "65 64*3 53*2",
       "ssid=13 savetime=01/03/26 01:00:00 (1767402000) mars:/\n"
       "  level=full   sflags=vrF      size=50000        files=50         insert=01/03/26\n"
       "  create=01/03/26 complete=01/03/26 browse=01/13/26 01:00:00 retent=forever \n"
       "                    *vm_name: web1;\n"
       "                  annotation: before the great move;\n"
       "                       group: Weekly;\n"
       "  Clone #1: cloneid=1767402000  time=01/03/26 01:00:00    retent=forever   flags=\n"
       "    frag@         0 volid=         2 file/rec=       2/7     rn=0 last=01/04/26\n"
       "  Clone #2: cloneid=1767488400  time=01/04/26 01:00:00    retent=forever   flags=s\n"
       "    frag@         0 volid=         1 file/rec=       4/0     rn=0 last=01/05/26\n"
       "ssid=11 savetime=01/01/26 01:00:00 (1767229200) vault:/\n"
       "  level=full   sflags=vrF      size=1000000      files=1000       insert=01/01/26\n"
       "  create=01/01/26 complete=01/01/26 browse=01/11/26 01:00:00 retent=01/01/27 01:00:00\n"
       "                       group: Default;\n"
       "  Clone #1: cloneid=1767229200  time=01/01/26 01:00:00    retent=01/01/27  flags=\n"
       "    frag@         0 volid=         1 file/rec=       2/10    rn=0 last=01/02/26\n"
       "ssid=12 savetime=01/02/26 01:00:00 (1767315600) vault:/home\n"
       "  level=incr   sflags=vrF      size=3000000      files=3000       insert=01/02/26\n"
       "  create=01/02/26 complete=01/02/26 browse=01/12/26 01:00:00 retent=02/01/26 01:00:00\n"
       "  Clone #1: cloneid=1767315600  time=01/02/26 01:00:00    retent=02/01/26  flags=\n"
       "    frag@         0 volid=         1 file/rec=       3/0     rn=0 last=01/03/26\n"
       "    frag@   2000000 volid=         2 file/rec=       1/0     rn=0 last=01/03/26\n"
       "ssid=14 savetime=01/04/26 01:00:00 (1767488400) vault:bootstrap\n"
       "  level=9      sflags=vrF      size=20000        files=20         insert=01/04/26\n"
       "  create=01/04/26 complete=01/04/26 browse=01/14/26 01:00:00 retent=01/04/27 01:00:00\n"
       "  Clone #1: cloneid=1767488400  time=01/04/26 01:00:00    retent=01/04/27  flags=\n"
       "    frag@         0 volid=         1 file/rec=       5/3     rn=0 last=01/05/26\n"
       "ssid=13 savetime=01/03/26 01:00:00 (1767402000) mars:/\n"
       "  level=full   sflags=vrF      size=50000        files=50         insert=01/03/26\n"
       "  create=01/03/26 complete=01/03/26 browse=01/13/26 01:00:00 retent=forever \n"
       "                    *vm_name: web1;\n"
       "                  annotation: before the great move;\n"
       "                       group: Weekly;\n"
       "  Clone #1: cloneid=1767402000  time=01/03/26 01:00:00    retent=forever   flags=\n"
       "    frag@         0 volid=         2 file/rec=       2/7     rn=0 last=01/04/26\n"
       "  Clone #2: cloneid=1767488400  time=01/04/26 01:00:00    retent=forever   flags=s\n"
       "    frag@         0 volid=         1 file/rec=       4/0     rn=0 last=01/05/26\n"
       "ssid=12 savetime=01/02/26 01:00:00 (1767315600) vault:/home\n"
       "  level=incr   sflags=vrF      size=3000000      files=3000       insert=01/02/26\n"
       "  create=01/02/26 complete=01/02/26 browse=01/12/26 01:00:00 retent=02/01/26 01:00:00\n"
       "  Clone #1: cloneid=1767315600  time=01/02/26 01:00:00    retent=02/01/26  flags=\n"
       "    frag@         0 volid=         1 file/rec=       3/0     rn=0 last=01/03/26\n"
       "    frag@   2000000 volid=         2 file/rec=       1/0     rn=0 last=01/03/26\n"},
      {__LINE__, "-L -c mars", "57",
       "ssid=13 (c02c24a0-00000006-0000000d-00000000-00000000-00000000) savetime=01/03/26 01:00:00 "
       "(1767402000) mars:/\n"
       "  level=full   sflags=vrF      size=50000        files=50         insert=01/03/26\n"
       "  create=01/03/26 complete=01/03/26 browse=01/13/26 01:00:00 retent=forever \n"
       "                    *vm_name: web1;\n"
       "                  annotation: before the great move;\n"
       "                       group: Weekly;\n"
       "  Clone #1: cloneid=1767402000  time=01/03/26 01:00:00    retent=forever   flags=\n"
       "    frag@         0 volid=         2 file/rec=       2/7     rn=0 last=01/04/26\n"
       "  Clone #2: cloneid=1767488400  time=01/04/26 01:00:00    retent=forever   flags=s\n"
       "    frag@         0 volid=         1 file/rec=       4/0     rn=0 last=01/05/26\n"
       "ssid=15 (4fc3b922-00000006-0000000f-00000000-00000000-00000000) savetime=01/05/26 01:00:00 "
       "(1767574800) mars:/tmp\n"
       "  level=incr   sflags=vrF      size=700          files=0          insert=01/05/26\n"
       "  create=01/05/26 complete=01/05/26 browse=01/15/26 01:00:00 retent=02/04/26 01:00:00\n"},
      {__LINE__, "-xc, -a", "65 64*3 53*2",
       "volume,client,date-time,sum-size,level,name\n"
       "TAPE.A,mars,01/03/26,49 KB,full,/\n"
       "TAPE.A,vault,01/01/26,977 KB,full,/\n"
       "TAPE.A,vault,01/02/26,1954 KB,incr,/home\n"
       "TAPE.A,vault,01/04/26,20 KB,9,bootstrap\n"
       "TAPE.B,mars,01/03/26,49 KB,full,/\n"
       "TAPE.B,vault,01/02/26,977 KB,incr,/home\n"},
      {__LINE__, "-xp%s|%s\\n -r ssid,name -a", "65 64*3 53*2",
       "ssid|name\n"
       "13|/\n"
       "11|/\n"
       "12|/home\n"
       "14|bootstrap\n"
       "13|/\n"
       "12|/home\n"},
  };
  for (const report_row &row : rows) {
    SCOPED_TRACE(row.line);
    calls();
    command_result result = site()->run(row.words);
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.out, row.out);
    EXPECT_EQ(result.err, "");
    EXPECT_EQ(calls(), row.calls);
  }
}

TEST_F(reports, kinds_of_query) {
  const report_row rows[] = {
      {__LINE__, "-a -r newline,name -q ssid=13", "53", "\n name\n\n/\n"},
      {__LINE__, "-c mars", "57 64*2",
       " volume        client       date      size   level  name\n"
       "               mars        01/05/26   0 KB    incr  /tmp\n"
       "TAPE.A         mars        01/03/26  49 KB    full  /\n"
       "TAPE.B         mars        01/03/26  49 KB    full  /\n"},
      {__LINE__, "-c moon -r ssid", "57",
       "13\n"
       "15\n"},
      {__LINE__, "-c mars -l", "57 64*2",
       " volume        client       date      size   level  name\n"
       "               mars        01/05/26   0 KB    incr  /tmp\n"
       "TAPE.A         mars        01/03/26  49 KB    full  /\n"
       "TAPE.B         mars        01/03/26  49 KB    full  /\n"},
      {__LINE__, "-c mars -c vault", "65 64*3 53*2",
       " volume        client       date      size   level  name\n"
       "TAPE.A         mars        01/03/26  49 KB    full  /\n"
       "TAPE.A         vault       01/01/26 977 KB    full  /\n"
       "TAPE.A         vault       01/02/26 1954 KB   incr  /home\n"
       "TAPE.A         vault       01/04/26  20 KB       9  bootstrap\n"
       "TAPE.B         mars        01/03/26  49 KB    full  /\n"
       "TAPE.B         vault       01/02/26 977 KB    incr  /home\n"},
      {__LINE__, "-N /", "65 64*3 53*2",
       " volume        client       date      size   level  name\n"
       "TAPE.A         mars        01/03/26  49 KB    full  /\n"
       "TAPE.A         vault       01/01/26 977 KB    full  /\n"
       "TAPE.B         mars        01/03/26  49 KB    full  /\n"},
      {__LINE__, "-t 1/3/2026", "57 64*2",
       " volume        client       date      size   level  name\n"
       "               mars        01/05/26   0 KB    incr  /tmp\n"
       "TAPE.A         mars        01/03/26  49 KB    full  /\n"
       "TAPE.A         vault       01/04/26  20 KB       9  bootstrap\n"
       "TAPE.B         mars        01/03/26  49 KB    full  /\n"},
      {__LINE__, "-q savetime<1/3/2026", "57 64*2",
       " volume        client       date      size   level  name\n"
       "TAPE.A         vault       01/01/26 977 KB    full  /\n"
       "TAPE.A         vault       01/02/26 1954 KB   incr  /home\n"
       "TAPE.B         vault       01/02/26 977 KB    incr  /home\n"},
      {__LINE__, "-q level=full", "65 64*3 53*2",
       " volume        client       date      size   level  name\n"
       "TAPE.A         mars        01/03/26  49 KB    full  /\n"
       "TAPE.A         vault       01/01/26 977 KB    full  /\n"
       "TAPE.B         mars        01/03/26  49 KB    full  /\n"},
      {__LINE__, "-q level=incr", "65 64*3 53*2",
       " volume        client       date      size   level  name\n"
       "TAPE.A         vault       01/02/26 1954 KB   incr  /home\n"
       "TAPE.B         vault       01/02/26 977 KB    incr  /home\n"},
      {__LINE__, "-c vault -q level=incr -r ssid", "57", "12\n"},
      {__LINE__, "-q volume=TAPE.B", "65 64 53",
       " volume        client       date      size   level  name\n"
       "TAPE.B         mars        01/03/26  49 KB    full  /\n"
       "TAPE.B         vault       01/02/26 977 KB    incr  /home\n"},
      {__LINE__, "TAPE.B", "65", ""},
      {__LINE__, "-q pool=Offsite", "68 64 53",
       " volume        client       date      size   level  name\n"
       "TAPE.B         mars        01/03/26  49 KB    full  /\n"
       "TAPE.B         vault       01/02/26 977 KB    incr  /home\n"},
      {__LINE__, "-q pool=offsite -m", "68", ""},
      {__LINE__, "-q location=Vault", "70 64 53",
       " volume        client       date      size   level  name\n"
       "TAPE.B         mars        01/03/26  49 KB    full  /\n"
       "TAPE.B         vault       01/02/26 977 KB    incr  /home\n"},
      {__LINE__, "-q location= -m", "65",
       " state volume                  written  (%)  expires     read mounts capacity\n"
       "       disk.C                     0 KB   0%  01/01/27    0 KB     3     20 GB\n"},
      {__LINE__, "-q barcode=A00001", "69 64 53",
       " volume        client       date      size   level  name\n"
       "TAPE.A         mars        01/03/26  49 KB    full  /\n"
       "TAPE.A         vault       01/01/26 977 KB    full  /\n"
       "TAPE.A         vault       01/02/26 1954 KB   incr  /home\n"
       "TAPE.A         vault       01/04/26  20 KB       9  bootstrap\n"},
      {__LINE__, "-q volid=2", "64*2 53",
       " volume        client       date      size   level  name\n"
       "TAPE.B         mars        01/03/26  49 KB    full  /\n"
       "TAPE.B         vault       01/02/26 977 KB    incr  /home\n"},
      {__LINE__, "-q type=LTO -m", "63",
       " state volume                  written  (%)  expires     read mounts capacity\n"
       "       TAPE.A                   500 MB  50%  01/01/27    0 KB     3   1000 MB\n"
       "       TAPE.B                   999 MB full  01/01/27    0 KB     3   1000 MB\n"},
      {__LINE__, "-q full -m", "68",
       " state volume                  written  (%)  expires     read mounts capacity\n"
       "       TAPE.B                   999 MB full  01/01/27    0 KB     3   1000 MB\n"},
      {__LINE__, "-q ssid=12", "53 64*2",
       " volume        client       date      size   level  name\n"
       "TAPE.A         vault       01/02/26 1954 KB   incr  /home\n"
       "TAPE.B         vault       01/02/26 977 KB    incr  /home\n"},
      {__LINE__, "-q ssid=99", "53", ""},
      {__LINE__, "-q savetime=1767315600 -r ssid", "90", "12\n"},
      {__LINE__, "-q incomplete", "65 64*3 53*2", ""},
      {__LINE__, "-q recoverable -r ssid", "57",
       "13\n"
       "15\n"
       "11\n"
       "12\n"
       "14\n"},
      {__LINE__, "-q group=weekly", "65 64*3 53*2",
       " volume        client       date      size   level  name\n"
       "TAPE.A         mars        01/03/26  49 KB    full  /\n"
       "TAPE.B         mars        01/03/26  49 KB    full  /\n"},
      {__LINE__, "-q group= -r ssid", "57",
       "15\n"
       "12\n"
       "14\n"},
      {__LINE__, "-q annotation=great~move -r ssid", "57", "13\n"},
      {__LINE__, "-q annotation=before~the~great~move", "57 64*2",
       " volume        client       date      size   level  name\n"
       "TAPE.A         mars        01/03/26  49 KB    full  /\n"
       "TAPE.B         mars        01/03/26  49 KB    full  /\n"},
      {__LINE__, "-q vmname=ALL_VM", "65 64*3 53*2",
       " volume        client       date      size   level  name\n"
       "TAPE.A         mars        01/03/26  49 KB    full  /\n"
       "TAPE.B         mars        01/03/26  49 KB    full  /\n"},
      {__LINE__, "-q ssretentdur=30~days -r ssid", "57",
       "15\n"
       "12\n"},
      {__LINE__, "-A group -r ssid -a", "65 64*3 53*2",
       "13\n"
       "11\n"
       "13\n"},
      {__LINE__, "-A !group -r ssid -a", "65 64*3 53*2",
       "12\n"
       "14\n"
       "12\n"},
      {__LINE__, "-A group=default -r ssid -a", "65 64*3 53*2", "11\n"},
      {__LINE__, "-q mediafile=2 -r ssid,mediafile", "65 64*3 53*2",
       " ssid       file\n"
       "11             2\n"
       "13             2\n"},
      {__LINE__, "-c vault -q pool=Offsite -r ssid", "68 64 53", "12\n"},
      {__LINE__, "-c vault -q pool=Offsite", "68 64 53",
       " volume        client       date      size   level  name\n"
       "TAPE.B         vault       01/02/26 977 KB    incr  /home\n"},
      {__LINE__, "-c vault -r volume", "54 64*2",
       "TAPE.A\n"
       "TAPE.B\n"},
      {__LINE__, "-c mars -r savesets,volume,name", "57 64*2",
       "   #ss volume        name\n"
       "     0               /tmp\n"
       "     4 TAPE.A        /\n"
       "     2 TAPE.B        /\n"},
      {__LINE__, "-r savesets,volume -a", "65 64*3",
       "   #ss volume\n"
       "     4 TAPE.A\n"
       "     2 TAPE.B\n"
       "     0 disk.C\n"},
      {__LINE__, "-a -r ssid,sumsize -o l", "65 64*3 53*2",
       " ssid         size\n"
       "14           20 KB\n"
       "13           49 KB\n"
       "13           49 KB\n"
       "11          977 KB\n"
       "12         1954 KB\n"
       "12          977 KB\n"},
      {__LINE__, "-a -o tR -r ssid,volume,name", "65 64*3 53*2",
       " ssid      volume         name\n"
       "14         TAPE.A         bootstrap\n"
       "13         TAPE.B         /\n"
       "13         TAPE.A         /\n"
       "12         TAPE.B         /home\n"
       "12         TAPE.A         /home\n"
       "11         TAPE.A         /\n"},
  };
  for (const report_row &row : rows) {
    SCOPED_TRACE(row.line);
    calls();
    command_result result = site()->run(row.words);
    EXPECT_EQ(result.out, row.out);
    EXPECT_EQ(result.err, row.out[0] == '\0' ? NO_MATCHES : "");
    EXPECT_EQ(result.status, row.out[0] == '\0' ? 1 : 0);
    EXPECT_EQ(calls(), row.calls);
  }
}

}  // namespace
}  // namespace qvr::test
