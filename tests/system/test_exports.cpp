// Every predefined report in every form of export, in the locales of this machine: an XML document
// that another parser reads, and as many lines as there are rows.

#include <algorithm>
#include <clocale>

#include "system_fixture.h"

namespace qvr::test {
namespace {

const std::vector<std::string> REPORTS = {"-a",    "-m", "-m -V", "-p -a", "-v -a", "-V -a",
                                          "-k -a", "-B", "-S -a", "-L -a", "-X -a"};

// Those that the C library has here.
std::vector<std::string> locales() {
  std::vector<std::string> found;
  for (const char *name : {"C", "C.UTF-8", "en_US.UTF-8", "de_DE.UTF-8", "de_DE.ISO-8859-1"}) {
    locale_t locale = newlocale(LC_ALL_MASK, name, nullptr);
    if (locale == nullptr) continue;
    freelocale(locale);
    found.push_back(name);
  }
  return found;
}

std::size_t count_of(const std::string &text, std::string_view part) {
  std::size_t count = 0;
  for (std::size_t at = text.find(part); at != text.npos; at = text.find(part, at + 1)) count++;
  return count;
}

class exports : public system_test {};

TEST_F(exports, documents_are_well_formed) {
  for (const std::string &locale : locales()) {
    for (const std::string &report : REPORTS) {
      SCOPED_TRACE(locale + " " + report);
      std::vector<std::string> words = words_of(report);
      words.insert(words.begin(), "-xm");
      command_result result = site()->run(words, {"LC_ALL=" + locale});
      EXPECT_EQ(result.status, 0) << result.err;
      command_options options;
      options.input = result.out;
      command_result parsed = run_command({"xmllint", "--noout", "-"}, options);
      EXPECT_EQ(parsed.status, 0) << parsed.err;
      EXPECT_EQ(count_of(result.out, "<result>"), count_of(result.out, "</result>"));
    }
  }
}

TEST_F(exports, forms_agree_on_the_rows) {
  for (const char *report : {"-a", "-m", "-v -a", "-k -a", "-B"}) {
    SCOPED_TRACE(report);
    std::string table = site()->run(std::string_view(report)).out;
    std::string listed = site()->run(std::string("-xc\x1f ") + report).out;
    std::string document = site()->run(std::string("-xm ") + report).out;
    std::size_t rows = count_of(table, "\n") - 1;
    EXPECT_GT(rows, 5u);
    EXPECT_EQ(count_of(listed, "\n") - 1, rows);
    EXPECT_EQ(count_of(document, "<result>"), rows);
    std::size_t columns = count_of(listed.substr(0, listed.find('\n')), "\x1f");
    EXPECT_EQ(count_of(listed, "\x1f"), columns * (rows + 1));
    EXPECT_EQ(site()->run(std::string("-xq ") + report).out, "");
  }
}

}  // namespace
}  // namespace qvr::test
