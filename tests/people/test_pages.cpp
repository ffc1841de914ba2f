// The manual pages against the tables of the code.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "field_catalogue.h"
#include "options.h"
#include "people_files.h"
#include "run_command.h"

namespace qvr::test {
namespace {

using testing::ElementsAreArray;
using words = std::set<std::string>;

std::string page(const std::string &name) {
  return file_text(BUILD_DIRECTORY "/man/" + name);
}

// The words of all lines that begin with the macro, without punctuation.
words macro_words(const std::string &text, const std::string &macro) {
  words all;
  for (const std::string &line : lines_of(text)) {
    if (!line.starts_with(macro)) continue;
    words here = found(line.substr(macro.size()), "([^ ,]+)");
    all.insert(here.begin(), here.end());
  }
  return all;
}

TEST(pages, lint_finds_nothing) {
  for (const char *name :
       {"reelscan.8", "reelscan-query.7", "reelscan-messages.7", "qvrlabd.8", "qvrcat.8"}) {
    command_result lint =
        run_command({"mandoc", "-T", "lint", BUILD_DIRECTORY "/man/" + std::string(name)});
    for (const std::string &line : lines_of(lint.out + lint.err)) {
      // Whether the other pages are installed here is no matter.
      EXPECT_THAT(line, testing::HasSubstr("referenced manual not found"));
    }
  }
}

TEST(pages, every_option_and_export_form) {
  words told, known;
  for (const std::string &line : lines_of(page("reelscan.8"))) {
    if (!line.starts_with(".It Fl ")) continue;
    bool form = line.find(" Ns Cm ") != std::string::npos;
    std::string argument = form ? "" : *(found(line + " Ar -", " Ar (\\S+)").rbegin());
    words letters = form ? words{} : found(line.substr(7, line.find(" Ar ") - 7), "([A-Za-z])");
    for (const std::string &letter : letters) told.insert(letter + " " + argument);
    if (form) told.insert("x" + line.substr(line.find(" Cm ") + 4));
  }
  for (const option_form_t &form : option_forms()) {
    bool argument = form.argument != nullptr;
    known.insert(std::string(1, form.letter) + " " + (argument ? form.argument : "-"));
  }
  for (const export_form_t &form : export_forms()) {
    bool more = form.parameter != nullptr;
    known.insert(std::string("x") + form.letter +
                 (more ? std::string(" Ns Ar ") + form.parameter : ""));
  }
  EXPECT_THAT(told, ElementsAreArray(known));
}

TEST(pages, every_word_once_with_its_width) {
  std::string text = page("reelscan-query.7");
  // One of each kind as it must stand: type, width, comparators, name in exports.
  for (const char *entry :
       {"client\n.Pq text, width 11 , Cm = No list\n",
        "%used\n.Pq count, width 5 , Cm = < <= > >= , in exports Li percent\\-used\n",
        "volid\n.Pq id, width 11 , Cm =\n",
        "ssattr\n.Pq text, width 31 , Cm = != No list , queries alone\n",
        "savesets\n.Pq count, width 6 , reports alone\n", "full\n.Pq flags\n"})
    EXPECT_THAT(text, testing::HasSubstr("\n.It Cm " + std::string(entry)));
  for (const mr_t &field : field_catalogue()) {
    SCOPED_TRACE(field.mr_key);
    std::string item =
        "\n.It Cm " + std::regex_replace(std::string(field.mr_key), std::regex("-"), "\\-");
    bool keyword = field.mr_flags == MR_KEYWORD;
    std::string width = keyword ? ".Pq flags\n" : ", width " + std::to_string(field.mr_width);
    std::size_t at = text.find(item + "\n.Pq ");
    ASSERT_NE(at, std::string::npos);
    EXPECT_EQ(text.find(item + "\n.Pq ", at + 1), std::string::npos);
    EXPECT_NE(text.substr(at, text.find("\n", at + item.size() + 5) - at + 1).find(width),
              std::string::npos);
  }
  for (const mr_t &field : linear_catalogue())
    EXPECT_NE(text.find("\n.It Li " + std::string(field.mr_key) + " Ta "), std::string::npos)
        << field.mr_key;
}

TEST(pages, every_environment_variable_and_file) {
  std::string text = page("reelscan.8"), sources = all_sources();
  words told = macro_words(text, ".It Ev "),
        known = found(sources, "\"((?:QVR|VL|MAX|NO|BTLS|MSG|PURIFY)[A-Z]*_[A-Z_]+)\"");
  known.merge(found(sources, "\"(QVRCATALOG[A-Z]+)\""));
  known.insert({"LC_ALL", "LANG", "TZ"});
  EXPECT_THAT(told, ElementsAreArray(known));

  for (const std::string &file :
       found(sources, "(?:debug_marker|install_path)\\((?:INSTALL_[A-Z_]+, )?\"([a-z.]+)\"")) {
    if (file == "index" || file == "ksdbg.tmp") continue;  // not read by this command
    EXPECT_NE(text.find(file), std::string::npos) << file;
  }
}

TEST(pages, every_option_and_fault_of_the_lab) {
  std::string help = run_command({built_program("qvrlabd"), "--help"}).out,
              text = page("qvrlabd.8");
  EXPECT_THAT(found(text, "\n\\.It Fl -([a-z-]+)"),
              ElementsAreArray(found(help, "\n  --([a-z-]+)")));
  words faults = found(help.substr(help.find("What to strike")), "\n  ([a-z-]+)");
  faults.insert({"random-delay", "pad"});
  EXPECT_THAT(macro_words(text.substr(text.find("What to strike")), ".Cm "),
              testing::IsSupersetOf(faults));
}

}  // namespace
}  // namespace qvr::test
