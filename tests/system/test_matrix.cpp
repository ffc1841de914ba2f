// Each predefined report with each kind of query, and what no such pair shows: whole outputs and
// the calls made, held against the files in golden/, one a report.
#include <optional>

#include "lab_calls.h"
#include "small_catalogue.h"

namespace qvr::test {
namespace {

constexpr const char *REPORTS[][2] = {
    {"default", ""}, {"m", "-m"}, {"p", "-p"}, {"v", "-v"}, {"V", "-V"}, {"k", "-k"}, {"B", "-B"},
    {"S", "-S"},     {"L", "-L"}, {"X", "-X"}, {"C", "-C"}, {"O", "-O"}, {"h", "-h"}, {"more", ""},
};

// Days in January 2026 are told, so that nothing depends on the clock.
constexpr const char *QUERIES[] = {
    "-a",
    "-c mars",
    "-c moon",
    "-c vault -c mars",
    "-N /",
    "-t 1/3/2026",
    "-q savetime<1/3/2026",
    "-t 1/2/2026 -q savetime<1/4/2026",
    "-a -q level=full",
    "-a -q level>=9,level<=incr",
    "-a TAPE.B",
    "-a TAPE.A TAPE.B",
    "-a -q pool=Offsite",
    "-a -q location=Vault",
    "-a -q barcode=A00001",
    "-a -q volid=2",
    "-a -q ssid=12",
    "-q savetime=1767402000",
    "-q savetime=1767402000 -c mars",
    "-a -q !incomplete",
    "-a -q suspect",
    "-a -q full",
    "-a -q group=Weekly",
    "-a -q annotation=great",
    "-a -A group",
    "-a -A !group",
    "-a -q ssretentdur=30~days",
    "-c mars -q pool=Offsite",
    "-a -q mounts>2 -c vault",
};

// Reports of one's own, fields and values that the pairs leave out, orders and forms.
constexpr const char *MORE[] = {
    "-m -v",
    "-m -V",
    "-m -o lR",
    "-m -o t",
    "-xc, -a",
    "-xp%s|%s\\n -r ssid,name -a",
    "-xm -r name,newline -c mars",
    "-xq -a",
    "-a -r space(2),newline(3)",
    "-c moon -r ssid",
    "-c mars -l",
    "TAPE.B",
    "-q level=incr",
    "-c vault -q level=incr -r ssid",
    "-q pool=offsite -m",
    "-q location= -m",
    "-q type=LTO -m",
    "-q full -m",
    "-q !full,mounts>2 -m",
    "-q %used>99 -m",
    "-q %used=full -r volume,%used",
    "-q ssid=99",
    "-q ssid=13 -r newline,name",
    "-q ssid=12x",
    "-q savetime=1767315600 -r ssid",
    "-q incomplete",
    "-q recoverable -r ssid",
    "-q group=weekly",
    "-q group= -r ssid",
    "-q annotation=great~move -r ssid",
    "-q annotation=before~the~great~move",
    "-q vmname=ALL_VM",
    "-q ssretentdur=30~days -r ssid",
    "-q ssretent=forever -r ssid",
    "-q ssattr=*NAME,ssattr!=anno* -r ssid",
    "-q copies=0 -r ssid,copies,client",
    "-A group=default -r ssid -a",
    "-A !group=default -r ssid -a",
    "-q mediafile=2 -r ssid,mediafile",
    "-q mediafile=2 -r ssid,mediafile -o t",
    "-q cloneid=1767488400 -r ssid,cloneid",
    "-c vault -q pool=Offsite -r ssid",
    "-c vault -q written>900G -r ssid,name",
    "-c vault -r volume",
    "-c mars -r savesets,volume,name",
    "-c mars -r ssid,cloneid,clflags",
    "-c mars -r cloneid,name -o n",
    "-r savesets,volume -a",
    "-r savesets,volume -a -o l",
    "-a -r ssid,sumsize -o l",
    "-a -r ssid,fragsize,mediafile,mediarec",
    "-a -r volume,mediafile,ssid -o mo",
    "-a -r client,name,ssid -o cn",
    "-a -r client,name,ssid -o nR",
    "-a -r ssexp,ssid -o e",
    "-a -r ssid,volume,name -o tR",
    "-S -a -o tR -q level=full",
    "-S -c vault -q pool=Offsite -xc;",
    "-q ssid=12 -S -xm",
    "-a -B -o m",
    "-a -B -xc,",
    "-h -t 1/1/2026 -V",
    "-h -t 1/1/2026 -T 1/5/2026 -r ssid,cloneid,savetime,operation,user,timestamp(24),validity",
    "-h -t 1/1/2026 -r operation(5),operation(9),newvalue(24),endtime,savetime(24) -c mars",
    "-h -t 1/1/2026 -r changes,ssid",
    "-h -q user=nobody",
    // Every column, a line each, at its own width and at one that is wide.
    "-c mars -xm -r volume,ssbundle,group,policy,workflow,action,volid,barcode,family,type,"
    "volflags,pool,location,capacity,written,%used,read,next,nrec,volaccess,olabel,labeled,mounts,"
    "recycled,avail,metric,state,savesets,device,bhrltype,access_info,volretent,volattrs",
    "-c mars -xm -r name,savetime,nsavetime,ssid,level,client,attrs,annotation,pssid,ssflags,"
    "sumflags,fragflags,totalsize,nfiles,ssexp,ssprotect,copies,validcopies,cloneid,clonetime,"
    "clflags,first,last,sumsize,fragsize,mediafile,mediarec,mediamark,ssaccess,ssbrowse,bhrltime,"
    "ssretent,ssretentdur,ssinsert,sscreate,sscomp,clientid,clretent,clretentdur,checkpoint_id,"
    "checkpoint_seq,vmname,totalvmdiskutil,occupiedvmdiskutil,backup_size,rdz,endtime",
    "-q ssid=12 -xm -I -r "
    "savetime(24),totalsize(10),ssretentdur(10),ssid(53),volid(53),ssbrowse(19)"
    ",ssretent(18),clretentdur(9),written(40),name(1)",
};

// A change of a save set, a copy that was taken back, and a save set that is gone.
constexpr const char *HISTORY =
    "insert into history select 1,ssid,0,1,1767500000,'root@vault','ssretent','1769994000',"
    "'2147483647',1767600000,client,name,clientid from saveset where id=12;"
    "insert into history select 2,ssid,1767488400,0,1767488400,'root@vault','clretent','',"
    "'9223372036854775807',9223372036854775807,client,name,clientid from saveset where id=13;"
    "insert into history select 3,ssid,0,2,1767590000,'lea@mars','label','/tmp','',"
    "9223372036854775807,client,name,clientid from saveset where id=15;"
    "insert into history select 4,ssid,0,2,1767590000,'lea@mars','ssid','15','',"
    "9223372036854775807,client,name,clientid from saveset where id=15;";

class matrix : public testing::TestWithParam<int> {
 protected:
  static void SetUpTestSuite() {
    at.emplace(HISTORY, std::vector<std::string>{"--log", logs.emplace().file("log")});
  }
  static void TearDownTestSuite() { at.reset(), logs.reset(); }

  static std::string told(lab_calls &calls, const std::string &words) {
    command_result result = at->site->run(words);
    std::string text = "$ reelscan " + words + "\n" + result.out;
    // What is always said is told in the tests of the command line, and the declarations of a
    // document in those of the forms.
    if (std::size_t usage = text.find("usage: reelscan"); usage != text.npos)
      text = text.substr(0, usage) + "(usage)\n";
    if (std::size_t start = text.find("<?xml"), end = text.find("]>\n"); end != text.npos)
      text.replace(start, end - start, "...");
    if (!result.err.empty()) text += "! " + result.err;
    return text + "= " + std::to_string(result.status) + ", calls " + calls.next() + "\n\n";
  }

  // The command lines of a report, one for each query.
  static std::vector<std::string> lines_of(const std::string &option) {
    if (option == "-C" || option == "-O") return {option, option + " -a"};  // take no query
    std::vector<std::string> lines;
    for (std::string query : QUERIES) {
      std::string words = option;
      // History takes no -a, and days near the clock's would be told by -X.
      if (option == "-h" && query.starts_with("-a")) query.erase(0, 3);
      if (option == "-X" && query.find("savetime") == query.npos) words += " -q savetime<2/1/2026";
      if (option == "-h" && query.find("-t") == query.npos) words += " -t 1/1/2026";
      lines.push_back(words + (words.empty() || query.empty() ? "" : " ") + query);
    }
    return lines;
  }

  static inline std::optional<temp_dir> logs;
  static inline std::optional<small_site> at;
};

TEST_P(matrix, golden) {
  if (!at->site) GTEST_SKIP() << at->why;
  const auto &[name, option] = REPORTS[GetParam()];
  std::vector<std::string> lines(std::begin(MORE), std::end(MORE));
  if (std::string_view(name) != "more") lines = lines_of(option);
  lab_calls calls(logs->file("log"));
  calls.next();
  std::string text;
  for (const std::string &words : lines) text += told(calls, words);
  expect_golden(name, text);
}

INSTANTIATE_TEST_SUITE_P(reports, matrix, testing::Range(0, static_cast<int>(std::size(REPORTS))),
                         [](const auto &report) { return std::string(REPORTS[report.param][0]); });

}  // namespace
}  // namespace qvr::test
