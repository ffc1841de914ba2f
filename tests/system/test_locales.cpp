// Reports and their export forms in three locales over records that are hard to print: wide and
// broken characters, over-long names, times at and before the epoch, both forevers. The outputs are
// held against golden/locale.*.txt.
#include <cctype>
#include <optional>

#include "small_catalogue.h"

namespace qvr::test {
namespace {

constexpr const char *HARD_RECORDS =
    "update volume set volume='Wörter 世界テープ', location='倉庫', volretent=-1 where id=2;"
    "update volume set volretent=2147483647, volhold=2147483647 where id=1;"
    "update volume set volretent=9223372036854775807, volume='a & <b> \"c\"' where id=3;"
    "update saveset set name='/дом/Ünïcode 😀', savetime=0, ssinsert=0, sscreate=-1, "
    "totalsize=-1, nfiles=0 where id=11;"
    "update saveset set client='höst', savetime=-5, sscomp=9223372036854775807 where id=12;"
    "update saveset set name=cast(x'2f62fffe80c328' as text) where id=13;"
    "update saveset set name='/'||replace(hex(zeroblob(600)),'0','長'), savetime=2147483647,"
    "ssretent=4294967295, ssbrowse=4294967295 where id=14;"
    "insert into saveset_attribute values(14,'*QVR_OLD_FOREVER_TIME',0,'Yes');"
    "insert into saveset_attribute values(12,'note',0,'kühl & trocken <lagern>');";

constexpr const char *REPORTS[] = {
    "-a",
    "-p -a",
    "-m",
    "-m -V",
    "-v -a",
    "-V -a",
    "-k -a",
    "-S -a",
    "-L -a",
    "-X -a -q savetime<2/1/2026",
    "-a -r volume,name,client,ssid",
    "-a -r ssid,savetime(24),savetime,nsavetime,ssexp,clretent,totalsize,nfiles",
    "-a -I -r ssid,savetime(24),sscomp(24)",
    "-q ssattr=*QVR_OLD_FOREVER_TIME -r ssid,savetime(30),savetime,clretent",
};

std::string shortened(const std::string &document) {
  // The declarations are the same in every document.
  std::size_t end = document.find("]>\n");
  return end == document.npos ? document : "..." + document.substr(end + 2);
}

class locales : public testing::TestWithParam<const char *> {
 protected:
  static void SetUpTestSuite() {
    at.emplace(HARD_RECORDS);
    // A locale of this test's own, as machines differ in what they have.
    std::string made = at->directory.file("de_DE.UTF-8");
    has_german =
        run_command({"localedef", "-i", "de_DE", "-f", "UTF-8", "--no-archive", made}).status == 0;
  }
  static void TearDownTestSuite() { at.reset(); }

  static command_result run(const std::vector<std::string> &more, const std::string &report) {
    std::vector<std::string> words = more, rest = words_of(report);
    words.insert(words.end(), rest.begin(), rest.end());
    return at->site->run(words,
                         {std::string("LC_ALL=") + GetParam(), "LOCPATH=" + at->directory.path()});
  }
  static void tell(std::string &text, const std::string &words, const command_result &result) {
    text += "$ reelscan " + words + "\n" + shortened(result.out);
    if (!result.err.empty()) text += "! " + result.err;
    text += "= " + std::to_string(result.status) + "\n\n";
  }

  static inline bool has_german = false;
  static inline std::optional<small_site> at;
};

TEST_P(locales, golden) {
  if (!at->site) GTEST_SKIP() << at->why;
  const std::string locale = GetParam();
  if (locale == "de_DE.UTF-8" && !has_german) GTEST_SKIP() << "localedef makes no de_DE here";
  std::string text;
  for (const std::string report : REPORTS) {
    tell(text, report, run({}, report));
    command_result list = run({"-xc|"}, report);
    tell(text, "-xc| " + report, list);
    // As many conversions as columns.
    std::string header = list.out.substr(0, list.out.find('\n')), format = "-xp<%s>";
    for (char c : header) {
      if (c == '|') format += "<%s>";
    }
    tell(text, "-xp... " + report, run({format + "\\n"}, report));
    command_result document = run({"-xm"}, report);
    tell(text, "-xm " + report, document);
    command_options input;
    input.input = document.out;
    command_result parsed = run_command({"xmllint", "--noout", "-"}, input);
    EXPECT_EQ(parsed.status, 0) << report << "\n" << parsed.err;
  }
  expect_golden("locale." + locale, text);
}

INSTANTIATE_TEST_SUITE_P(all, locales, testing::Values("C", "C.UTF-8", "de_DE.UTF-8"),
                         [](const auto &locale) {
                           std::string name = locale.param;
                           for (char &c : name) {
                             if (std::isalnum(static_cast<unsigned char>(c)) == 0) c = '_';
                           }
                           return name;
                         });

}  // namespace
}  // namespace qvr::test
