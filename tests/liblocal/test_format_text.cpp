// Cells, numbers and code sets: the small text helpers behind the format engine.
#include <gtest/gtest.h>

#include <clocale>
#include <cstdio>
#include <string>
#include <thread>

#include "display_width.h"
#include "format.h"
#include "number_text.h"
#include "text_convert.h"

namespace qvr {
namespace {

TEST(display_width, by_first_bytes) {
  struct {
    int line;
    std::string_view text;
    std::size_t cells;
  } rows[] = {
      {__LINE__, "", 0},
      {__LINE__, "plain", 5},
      {__LINE__, "grün", 4},
      {__LINE__, "\xe2\x82\xac", 1},  // euro sign
      {__LINE__, "\xe3\x80\x80", 2},  // ideographic space
      {__LINE__, "\xee\x80\x80", 2},  //
      {__LINE__, "\xef\xab\xbf", 2},  // last of the ideographs
      {__LINE__, "\xef\xac\x80", 1},  // ligatures
      {__LINE__, "\xef\xbb\xbf", 1},  //
      {__LINE__, "\xef\xbc\x81", 2},  // full-width forms
      {__LINE__, "\xef\xbd\x9f", 2},  //
      {__LINE__, "\xef\xbd\xa0", 1},  // half-width forms
      {__LINE__, "\xef\xbe\x80", 1},  //
      {__LINE__, "\xef\xbf\xa0", 2},  // full-width signs
      {__LINE__, "\xef\xbf\xa7", 2},  //
      {__LINE__, "\xef\xbf\xa8", 1},  //
      {__LINE__, "\xf0\x9f\x98\x80-", 3},
      {__LINE__, "\xf8\x88\x80\x80\x80-", 3},
      {__LINE__, "\xfc\x84\x80\x80\x80\x80-", 3},
      {__LINE__, "a\x80-", 3},     // a stray byte is a cell of its own
      {__LINE__, "a\xe6\x97", 3},  // ends inside a character
  };
  for (const auto &row : rows) {
    SCOPED_TRACE(row.line);
    EXPECT_EQ(i18n_strwidth(row.text), row.cells);
  }
  EXPECT_EQ(i18n_strnwidth("日本語", 2), 4u);
  EXPECT_EQ(i18n_strnwidth("ab", 9), 2u);
}

TEST(number_text, to_text) {
  EXPECT_STREQ(str_u64(0), "0");
  EXPECT_STREQ(str_u64(~0ULL), "18446744073709551615");
  EXPECT_STREQ(str_i64(INT64_MIN), "-9223372036854775808");
  EXPECT_STREQ(str_hex64(0xdeadbeef), "deadbeef");
  EXPECT_STREQ(str_ptr64(0x1f), "0x000000000000001f");
  // Twenty results hold at once; the next takes the place of the first.
  const char *first = str_u64(1);
  const char *last = nullptr;
  for (std::uint64_t i = 2; i <= 20; i++) last = str_u64(i);
  EXPECT_STREQ(first, "1");
  EXPECT_STREQ(last, "20");
  EXPECT_EQ(str_u64(21), first);
}

TEST(number_text, from_text) {
  constexpr std::uint64_t most = ~0ULL;
  constexpr std::int64_t top = INT64_MAX, bottom = INT64_MIN;
  struct {
    int line;
    const char *text;
    int base;
    std::size_t end;
    int u_status;
    std::uint64_t u;
    int i_status;
    std::int64_t i;
  } rows[] = {{__LINE__, "0", 10, 1, 0, 0, 0, 0},
              {__LINE__, "+42x", 10, 3, 0, 42, 0, 42},
              {__LINE__, "-1", 10, 2, 34, 0, 0, -1},
              {__LINE__, "", 10, 0, 22, 0, 22, 0},
              {__LINE__, "-", 10, 1, 22, 0, 22, 0},
              {__LINE__, " 1", 10, 0, 22, 0, 22, 0},
              {__LINE__, "0x1F", 16, 4, 0, 31, 0, 31},
              {__LINE__, "1f", 16, 2, 0, 31, 0, 31},
              {__LINE__, "0x1f", 10, 1, 0, 0, 0, 0},
              {__LINE__, "zZ", 36, 2, 0, 35 * 36 + 35, 0, 35 * 36 + 35},
              {__LINE__, "129", 2, 1, 0, 1, 0, 1},
              {__LINE__, "9223372036854775807", 10, 19, 0, 0x7fffffffffffffff, 0, top},
              {__LINE__, "9223372036854775808", 10, 19, 0, 0x8000000000000000, 34, top},
              {__LINE__, "-9223372036854775808", 10, 20, 34, 0, 0, bottom},
              {__LINE__, "-9223372036854775809", 10, 20, 34, 0, 34, bottom},
              {__LINE__, "18446744073709551615", 10, 20, 0, most, 34, top},
              {__LINE__, "18446744073709551616", 10, 19, 34, most, 34, top},
              {__LINE__, "99999999999999999999", 10, 19, 34, most, 34, top},
              {__LINE__, "-99999999999999999999", 10, 20, 34, 0, 34, bottom}};
  for (const auto &row : rows) {
    SCOPED_TRACE(row.line);
    const char *end;
    int status = -1;
    EXPECT_EQ(parse_u64(row.text, &end, row.base, &status), row.u);
    EXPECT_EQ(status, row.u_status);
    EXPECT_EQ(static_cast<std::size_t>(end - row.text), row.end);
    EXPECT_EQ(parse_i64(row.text, nullptr, row.base, &status), row.i);
    EXPECT_EQ(status, row.i_status);
  }
}

// Sets a locale for one test; the tests of a locale that the machine lacks are told as skipped.
class in_locale {
 public:
  explicit in_locale(const char *name) : set_(std::setlocale(LC_ALL, name) != nullptr) {}
  ~in_locale() { std::setlocale(LC_ALL, "C"); }
  explicit operator bool() const { return set_; }

 private:
  bool set_;
};

TEST(text_convert, to_and_from_the_locale) {
  std::string store;
  std::string_view ascii = "plain";
  EXPECT_EQ(text_to_locale(ascii, store).data(), ascii.data());
  // The "C" locale counts as ISO8859-1; what it cannot show is a question mark.
  EXPECT_EQ(text_to_locale("grün 日本 \xff!", store), "gr\xfcn ?? ?!");
  EXPECT_EQ(text_from_locale("gr\xfcn", store), "grün");
  // A character that lies across the border of two slices.
  std::string long_text(18430, 'a');
  long_text += "ü-";
  EXPECT_EQ(text_to_locale(long_text, store), std::string(18430, 'a') + "\xfc-");
  // Longer than one slice ends in a character that is not whole.
  EXPECT_EQ(text_to_locale("ü\xc3", store), "\xfc?");

  in_locale utf8("C.UTF-8");
  if (!utf8) GTEST_SKIP() << "no C.UTF-8 here";
  std::string_view wide = "grün 日本 \xff";
  EXPECT_EQ(text_to_locale(wide, store).data(), wide.data());
  EXPECT_EQ(i18n_wcswidth("日本", 2), 4);
  EXPECT_EQ(i18n_wcswidth("日本", 1), 2);
  EXPECT_EQ(i18n_wcswidth("\xff", 1), -1);
}

TEST(text_convert, well_formed_utf8) {
  struct {
    int line;
    std::string_view text;
    bool valid;
  } rows[] = {{__LINE__, "", true},
              {__LINE__, "grün 日本 \xf0\x9f\x98\x80", true},
              {__LINE__, "\x80", false},
              {__LINE__, "\xc0\xaf", false},          // longer than it need be
              {__LINE__, "\xe0\x80\xaf", false},      //
              {__LINE__, "\xf0\x80\x80\xaf", false},  //
              {__LINE__, "\xed\xa0\x80", false},      // half of a pair
              {__LINE__, "\xf4\x90\x80\x80", false},  // above the last character
              {__LINE__, "\xe6\x97", false},
              {__LINE__, "\xfe", false}};
  for (const auto &row : rows) {
    SCOPED_TRACE(row.line);
    EXPECT_EQ(utf8_valid(row.text), row.valid);
    std::string store;
    EXPECT_TRUE(utf8_valid(utf8_made_valid(row.text, store)));
    in_locale utf8("C.UTF-8");
    EXPECT_TRUE(utf8_valid(utf8_made_valid(row.text, store)));
  }
  std::string store;
  EXPECT_EQ(utf8_made_valid("gr\xfcn", store), "grün");
}

TEST(text_convert, streams_and_exempt_descriptors) {
  std::FILE *file = std::tmpfile();
  ASSERT_NE(file, nullptr);
  EXPECT_EQ(fmt_to_file(file, "%s|", "grün"), 5u);
  ASSERT_TRUE(text_exempt_fd(fileno(file)));
  EXPECT_EQ(fmt_to_file(file, "%s|", "grün"), 6u);
  EXPECT_EQ(text_to_file(file, "ü|"), 3u);
  text_unexempt_fd(fileno(file));
  EXPECT_EQ(text_to_file(file, "ü|"), 2u);
  // With the variable set, only the descriptors of the list are converted.
  setenv("QVR_CATCH_CHILD_STDOUT", "1", 1);
  EXPECT_EQ(text_to_file(file, "ü|"), 3u);
  ASSERT_TRUE(text_exempt_fd(fileno(file)));
  EXPECT_EQ(text_to_file(file, "ü|"), 2u);
  unsetenv("QVR_CATCH_CHILD_STDOUT");
  text_unexempt_fd(fileno(file));
  std::rewind(file);
  char text[64] = "";
  ASSERT_NE(std::fgets(text, sizeof text, file), nullptr);
  EXPECT_STREQ(text, "gr\xfcn|grün|ü|\xfc|ü|\xfc|");
  std::fclose(file);
  for (int fd = 1000; fd < 1010; fd++) EXPECT_TRUE(text_exempt_fd(fd));
  EXPECT_FALSE(text_exempt_fd(1010));
  EXPECT_TRUE(text_exempt_fd(1005));  // already there
  for (int fd = 1000; fd < 1010; fd++) text_unexempt_fd(fd);
}

}  // namespace
}  // namespace qvr
