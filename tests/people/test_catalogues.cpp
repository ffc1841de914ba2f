// The translated catalogues against the template of all messages.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <map>

#include "field_catalogue.h"
#include "field_rows.h"
#include "message_scan.h"
#include "msg_translation.h"
#include "people_files.h"

namespace qvr::test {
namespace {

using texts_t = std::map<int, std::string>;

// The messages of a catalogue's source, by their whole numbers; the texts as they are written.
texts_t catalogue_texts(const std::string &path) {
  texts_t texts;
  int set = 1;
  for (const std::string &line : lines_of(file_text(path))) {
    if (line.starts_with("$set ")) set = std::stoi(line.substr(5));
    std::size_t quote = line.find(" \"");
    if (line.empty() || line[0] == '$' || quote == std::string::npos) continue;
    texts[(set - 1) * 10000 + std::stoi(line)] = line.substr(quote + 2, line.size() - quote - 3);
  }
  return texts;
}

// The arguments that a text asks for.
std::size_t conversions(const std::string &text) {
  std::size_t count = 0;
  for (std::size_t at = 0; (at = text.find('%', at)) != std::string::npos; at += 2)
    count += at + 1 < text.size() && text[at + 1] != '%';
  count += static_cast<std::size_t>(std::count(text.begin(), text.end(), '*'));
  return count;
}

TEST(catalogues, german_is_complete_and_fits) {
  texts_t english = catalogue_texts(BUILD_DIRECTORY "/messages/vaultlin.msg");
  texts_t german = catalogue_texts(SOURCE_DIRECTORY "/locale/de_DE.msg");
  ASSERT_GT(english.size(), 600u);
  for (const auto &[id, text] : english) {
    SCOPED_TRACE(std::to_string(id) + " " + text);
    ASSERT_TRUE(german.contains(id));
    const std::string &translated = german[id];
    EXPECT_EQ(translated.ends_with("\\n"), text.ends_with("\\n"));
    EXPECT_EQ(translated.starts_with(" "), text.starts_with(" "));
    EXPECT_EQ(translated.empty(), text.empty());
    std::size_t values = conversions(text);
    if (values == 0 || text == "(%)") continue;  // without arguments "%" is a character
    EXPECT_EQ(conversions(translated), values);
    EXPECT_TRUE(msg_translation_fits(translated, text, values));
  }
}

// Names in exports are names of XML elements as well.
TEST(catalogues, german_names_are_names_of_elements) {
  texts_t german = catalogue_texts(SOURCE_DIRECTORY "/locale/de_DE.msg");
  auto check = [&](const catalogue_rows::texts_t &texts) {
    int id = texts.longname.id < 0 ? texts.title.id : texts.longname.id;
    EXPECT_EQ(german[id].find_first_of(" #%=/()<>&\"',;:?!"), std::string::npos) << german[id];
    EXPECT_EQ(std::string("0123456789.-").find(german[id].front()), std::string::npos);
  };
  for (const auto &row : catalogue_rows::field_rows) check(row.texts);
  for (const auto &row : catalogue_rows::linear_rows) check(row.texts);
}

}  // namespace
}  // namespace qvr::test
