#include <gtest/gtest.h>

#include "catalogue_template.h"
#include "message_scan.h"

namespace qvr {
namespace {

message_scan scan_of(const std::string &source) {
  message_scan scan;
  std::vector<source_token_t> tokens = source_tokens(source);
  scan.learn(tokens);
  scan.add("a.cpp", tokens);
  return scan;
}

TEST(message_scan, finds_an_id_with_its_text) {
  struct row {
    int line;
    const char *source;
    std::int32_t id;
    const char *text;  // null: no message
  };
  const row rows[] = {
      {__LINE__, R"(msg_print(144307, 13022, 130, "Only %d\n", {{1, "x"}});)", 144307, "Only %d\n"},
      {__LINE__, R"(return err_create(7, 15000 + error, "a" /* , */ " \"b\"");)", 7, "a \"b\""},
      {__LINE__, R"(f(catalog_text(6093, "expired"));)", 6093, "expired"},
      {__LINE__, R"(row rows[] = {{"volume", 150, {{2767, "title"}}}};)", 2767, "title"},
      {__LINE__, R"(err_number_t t[] = {{345, 5, "Authentication error"}};)", 345,
       "Authentication error"},
      {__LINE__, R"(constexpr int ID = 61332; g(); msg_print(ID, code, 2, "named");)", 61332,
       "named"},
      {__LINE__, R"_(msg_print(61'332, 0, 2, R"(raw "text")");)_", 61332, "raw \"text\""},
      {__LINE__, R"(char q = '"'; msg_text(5000, nullptr, "after a quote");)", 5000,
       "after a quote"},
      {__LINE__, R"(msg_print(0, 50000, 2, "%s");)", 0, nullptr},
      {__LINE__, R"(msg_print(id, 50000, 2, "%s");)", 0, nullptr},
      {__LINE__, R"(row r = {0, 55000, "no id"};)", 0, nullptr},
      {__LINE__, R"(row r = {390107, 2, "a program"};)", 0, nullptr},
      {__LINE__, R"(int f() { g(5000); return h("text"); })", 0, nullptr},
      {__LINE__, R"(// msg_print(5000, 0, 2, "x");)", 0, nullptr},
      {__LINE__, "// messages off\nrow r = {5000, \"x\"};\n// messages on\n", 0, nullptr},
      {__LINE__, R"(f(5000, "unterminated)", 0, nullptr},
  };
  for (const row &r : rows) {
    SCOPED_TRACE(r.line);
    message_scan scan = scan_of(r.source);
    if (r.text == nullptr) {
      EXPECT_TRUE(scan.messages().empty());
      continue;
    }
    ASSERT_EQ(scan.messages().size(), 1u);
    EXPECT_EQ(scan.messages().begin()->first, r.id);
    EXPECT_EQ(scan.messages().begin()->second.front().text, r.text);
  }
}

TEST(message_scan, template_puts_ids_into_sets_and_shows_conflicts) {
  message_scan scan =
      scan_of(R"(m(10000, "last \"of\" set 1\n"); m(10001, "first of %s"); m(10001, "other");)");
  std::string text = catalogue_template(scan, "1.2");
  const char *wanted =
      "$ 10000, a.cpp\n"
      "10000 \"last \\\"of\\\" set 1\\n\"\n"
      "$set 2\n"
      "$ 10001, a.cpp, with arguments\n"
      "$ also \"other\", a.cpp\n"
      "1 \"first of %s\"\n";
  EXPECT_NE(text.find(wanted), std::string::npos) << text;
  EXPECT_NE(text.find("2 \"QVRSETCOUNT:10000:\"\n"), std::string::npos);
}

}  // namespace
}  // namespace qvr
