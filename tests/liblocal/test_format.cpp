// The format engine: the platform's snprintf is the oracle for what both know, rows worked by hand
// for positions, cells, room and formats that mean harm.
#include "format.h"

#include <gtest/gtest.h>

#include <climits>
#include <cstring>
#include <string>
#include <vector>

#include "debug_words.h"

namespace qvr {
namespace {

// The formats here are made at run time, which is what the warning is about.
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
#pragma GCC diagnostic ignored "-Wformat-security"

using print_t = std::size_t (*)(char *, std::size_t, const char *, ...);
const print_t engine = i18n_snprintf;

template <class... Args>
std::string ours(const char *format, Args... args) {
  char buffer[2048];
  std::size_t length = engine(buffer, sizeof buffer, format, args...);
  EXPECT_EQ(buffer[length], '\0');
  return {buffer, length};
}

template <class... Args>
std::string platform(const char *format, Args... args) {
  char buffer[2048];
  int length = std::snprintf(buffer, sizeof buffer, format, args...);
  return {buffer, static_cast<std::size_t>(length)};
}

template <class T>
void compare(const std::string &format, std::initializer_list<T> values) {
  for (T value : values) {
    SCOPED_TRACE(format);
    EXPECT_EQ(ours(format.c_str(), value), platform(format.c_str(), value));
  }
}

TEST(format, agrees_with_the_platform) {
  const std::string flag_set = "-+ #0'";
  const std::string widths[] = {"", "1", "7", "23"};
  const std::string precisions[] = {"", ".", ".0", ".1", ".05", ".12"};
  for (unsigned bits = 0; bits < 64; bits++) {
    std::string flags;
    for (std::size_t i = 0; i < 6; i++) {
      if ((bits >> i & 1) != 0) flags += flag_set[i];
    }
    for (const std::string &width : widths) {
      for (const std::string &precision : precisions) {
        std::string head = "<%" + flags + width + precision;
        for (const char *letter : {"d", "i", "hd", "hhd"}) {
          compare<int>(head + letter + ">", {0, 7, -42, 70000, INT_MAX, INT_MIN});
        }
        for (const char *letter : {"u", "o", "x", "X", "hu", "hhx"}) {
          compare<unsigned>(head + letter + ">", {0, 255, UINT_MAX});
        }
        for (const char *letter : {"ld", "li", "lx", "lX", "lo"}) {
          compare<long>(head + letter + ">", {0, -1, LONG_MAX, LONG_MIN});
        }
        compare<long long>(head + "lld>", {0, LLONG_MIN});
        compare<unsigned long long>(head + "llu>", {0, ULLONG_MAX});
        compare<unsigned long>(head + "lu>", {0, ULONG_MAX});
        for (const char *letter : {"e", "E", "f", "g", "G"}) {
          compare<double>(head + letter + ">", {0.0, -2.5, 1e22, 0.1 + 0.2});
        }
        compare<long double>(head + "Lf>", {-2.5L});
        // The flags that the platform leaves undefined for these stay out.
        if (flags.find_first_of("+ #0'") != std::string::npos) continue;
        compare<const char *>(head + "s>", {"", "a", "some words"});
        if (precision.empty()) {
          compare<int>(head + "c>", {'x'});
          compare<const void *>(head + "p>", {"x", nullptr});
        }
      }
    }
  }
}

TEST(format, stars_agree_with_the_platform) {
  for (int width : {0, 1, -1, 9, -9}) {
    for (int precision : {-3, 0, 2, 6}) {
      EXPECT_EQ(ours("%*.*d|", width, precision, 42), platform("%*.*d|", width, precision, 42));
      EXPECT_EQ(ours("%*.*s|", width, precision, "abcd"),
                platform("%*.*s|", width, precision, "abcd"));
      EXPECT_EQ(ours("%2$*3$.*1$f|", precision, 3.14159, width),
                platform("%2$*3$.*1$f|", precision, 3.14159, width));
    }
    EXPECT_EQ(ours("%*s|", width, ""), platform("%*s|", width, ""));
  }
  // Behind a number a star leaves the position to the value and takes the next; so does a second.
  EXPECT_EQ(ours("%5*d|%d", 42, 4, 6), "  42|6");
  EXPECT_EQ(ours("%1$*.*d|%d", 42, 4, 3, 6), " 042|6");
}

// Formats and what they print of the arguments 5, "ab", 7L.
TEST(format, formats_that_name_positions_or_mean_harm) {
  struct {
    int line;
    const char *format;
    const char *text;
  } rows[] = {{__LINE__, "%2$s %1$d", "ab 5"},
              {__LINE__, "%2$s %2$s", "ab ab"},
              {__LINE__, "%2$*1$s|", "   ab|"},
              {__LINE__, "%2$-*1$s|", "ab   |"},
              {__LINE__, "%*s|", "   ab|"},
              {__LINE__, "%1$05d", "00005"},
              {__LINE__, "100%%", "100%"},
              {__LINE__, "50%% of %d%%", "50% of 5%"},
              {__LINE__, "ends in %", "ends in %"},
              {__LINE__, "ends in %-5.", "ends in %-5."},
              {__LINE__, "%n", "%n"},
              {__LINE__, "%hn%ln%lln", "%hn%ln%lln"},
              {__LINE__, "%S|%C|%ls|%hs|%Ls", "%S|%C|%ls|%hs|%Ls"},
              {__LINE__, "%lf|%a|%Ld", "%lf|%a|%Ld"},
              {__LINE__, "%zd|%jd", "%zd|%jd"},
              {__LINE__, "%!d", "%!d"},
              {__LINE__, "%l|%h.", "%l|%h."},
              // One position with two classes is fetched once; the other conversion prints itself.
              {__LINE__, "%1$s %1$d", "%1$s 5"},
              {__LINE__, "%1$d %2$*2$s", "5 ab"},
              {__LINE__, "%3$ld%1$d", "75"}};
  for (const auto &row : rows) {
    SCOPED_TRACE(row.line);
    EXPECT_EQ(ours(row.format, 5, "ab", 7L), row.text);
  }
}

TEST(format, widths_and_precisions_count_cells) {
  struct {
    int line;
    const char *format, *value, *text;
  } rows[] = {{__LINE__, "%10s|", "日本語日本", "日本語日本|"},
              {__LINE__, "%10s|", "abcdefghij", "abcdefghij|"},
              {__LINE__, "%10s|", "abcde", "     abcde|"},
              {__LINE__, "%-7s|", "日本", "日本   |"},
              {__LINE__, "%6s|", "grün", "  grün|"},
              {__LINE__, "%.3s|", "日本語", "日|"},
              {__LINE__, "%.4s|", "日本語", "日本|"},
              {__LINE__, "%.0s|", "日本語", "|"},
              {__LINE__, "%5.3s|", "日本語", "   日|"},
              {__LINE__, "%-5.3s|", "grün", "grü  |"},
              {__LINE__, "%.9s|", "ab", "ab|"},
              // A cut never stands on a byte that continues a character, not even a stray one.
              {__LINE__, "%.2s|", "a\x80\x80", "|"},
              {__LINE__, "%.1s|", "\xe6\x97", "|"},
              {__LINE__, "%.2s|", "\xe6\x97", "\xe6\x97|"},
              {__LINE__, "%.3s|", nullptr, "nul|"},
              {__LINE__, "%6s|", nullptr, "  null|"}};
  for (const auto &row : rows) {
    SCOPED_TRACE(row.line);
    EXPECT_EQ(ours(row.format, row.value), row.text);
  }
}

// What a bounded buffer of `capacity` holds: a conversion without its room ends the text before it.
TEST(format, bounded_buffers) {
  struct {
    int line;
    std::size_t capacity;
    const char *format;
    const char *text;
  } rows[] = {
      {__LINE__, 6, "plain text", "plain"},
      {__LINE__, 11, "plain text", "plain text"},
      {__LINE__, 1, "plain", ""},
      {__LINE__, 64, "%d", ""},  // the room of an unknown size is 64
      {__LINE__, 65, "%d", "12345"},
      {__LINE__, 20, "ab %d cd", "ab "},
      {__LINE__, 9, "ab %5d cd", "ab 12345"},
      {__LINE__, 8, "ab %5d cd", "ab "},
      {__LINE__, 20, "ab %99999999d", "ab "},
      {__LINE__, 6, "%2d%2d", "12345"},  // longer than the room it named: a full buffer
  };
  for (const auto &row : rows) {
    SCOPED_TRACE(row.line);
    std::vector<char> buffer(row.capacity + 1, '#');
    std::size_t length = engine(buffer.data(), row.capacity, row.format, 12345, 6);
    EXPECT_STREQ(buffer.data(), row.text);
    EXPECT_EQ(length, std::string_view(row.text).size());
    EXPECT_EQ(buffer[row.capacity], '#');
  }
  char text[8];
  EXPECT_EQ(engine(text, sizeof text, "%s", "1234567890"), 0u);
  EXPECT_EQ(engine(text, sizeof text, "%.7s", "1234567890"), 7u);
  EXPECT_EQ(engine(text, sizeof text, "%.8s", "1234567890"), 0u);
}

TEST(format, unbounded_and_allocated_results) {
  char text[16];
  EXPECT_EQ(engine(text, 0, "%s-%d", "abc", 5), 5u);
  EXPECT_STREQ(text, "abc-5");

  std::string large(100000, 'x');
  std::unique_ptr<char[]> grown;
  std::size_t length = i18n_asprintf(&grown, "%s%d%s", large.c_str(), 7, large.c_str());
  EXPECT_EQ(std::string(grown.get(), length), large + "7" + large);
  length = i18n_asprintf(&grown, "%f%30000d", 1e300, 1);
  EXPECT_EQ(length, std::strlen(grown.get()));
  EXPECT_EQ(length, platform("%f", 1e300).size() + 30000);

  fmt_native_cursor_t cursor;
  EXPECT_EQ(i18n_vsnprintf(nullptr, 10, nullptr, fmt_native_source, nullptr, "x", cursor), 0u);
  std::unique_ptr<char[]> fixed;
  EXPECT_EQ(i18n_vsnprintf(nullptr, 4, &fixed, fmt_native_source, nullptr, "plain", cursor), 3u);
  EXPECT_STREQ(fixed.get(), "pla");
}

void fetch_zero(fmt_slot_t &slot, fmt_cursor_t &, const char *) {
  slot = {};
}

const fmt_source_t zero_source = {fetch_zero, fetch_zero, fetch_zero, fetch_zero, fetch_zero,
                                  fetch_zero, fetch_zero, fetch_zero, fetch_zero, fetch_zero};

TEST(format, limits) {
  auto repeated = [](const char *piece, int count) {
    std::string text;
    for (int i = 0; i < count; i++) text += piece;
    return text;
  };
  EXPECT_EQ(i18n_arg_count("plain"), 0u);
  EXPECT_EQ(i18n_arg_count("%d %% %s"), 2u);
  EXPECT_EQ(i18n_arg_count("%*.*f"), 3u);
  EXPECT_EQ(i18n_arg_count("%3$s"), 3u);
  EXPECT_EQ(i18n_arg_count(repeated("%d", 300)), 300u);

  // 255 positions are the most; the flags of one conversion fill its specification.
  fmt_cursor_t cursor;
  auto with_zeros = [&](const std::string &format) {
    char text[2000];
    std::size_t length =
        i18n_vsnprintf(text, sizeof text, nullptr, zero_source, nullptr, format, cursor);
    return std::string(text, length);
  };
  EXPECT_EQ(with_zeros(repeated("%d", 255)), repeated("0", 255));
  EXPECT_EQ(with_zeros(repeated("%d", 256)), "");
  EXPECT_EQ(with_zeros("%255$d"), "0");
  EXPECT_EQ(with_zeros("%256$d"), "");
  EXPECT_EQ(with_zeros("%99999999999999999999$d"), "");
  EXPECT_EQ(with_zeros("%0$d%$d"), "00");
  EXPECT_EQ(ours(("%" + repeated("-", 250) + "d|").c_str(), 5), "5|");
  EXPECT_EQ(ours(("x%" + repeated("-", 300) + "d").c_str(), 5), "");
  std::unique_ptr<char[]> text;
  EXPECT_EQ(i18n_asprintf(&text, ("x%" + repeated("-", 300) + "d").c_str(), 5), 0u);
  EXPECT_EQ(text, nullptr);
}

TEST(format, tells_what_went_wrong) {
  const std::string flags(250, '+');
  struct {
    int line;
    int level;
    std::string format;
    const char *told;
  } rows[] = {
      {__LINE__, 6, "%256$d", "Too many arguments. maxpos(256) must be less than 256.\n"},
      {__LINE__, 6, "a text of more than twenty bytes", "i18n_vsnprintf: Truncation detected\n"},
      {__LINE__, 6, "%d", "i18n_vsnprintf: Truncation detected\n"},
      {__LINE__, 6, "%" + flags + "12345d",
       "i18n_vsnprintf: Truncation detected during parameter width formatting\n"},
      {__LINE__, 6, "%" + flags + "123.456d",
       "i18n_vsnprintf: Truncation detected during parameter precision formatting\n"},
      {__LINE__, 2, "%m", "Failed to identify '%m' string formatting symbol\n"},
      {__LINE__, 1, "%m", ""},
      {__LINE__, 5, "%d", ""}};
  for (const auto &row : rows) {
    SCOPED_TRACE(row.line);
    char buffer[20];
    debug_set_level(row.level);
    testing::internal::CaptureStderr();
    engine(buffer, sizeof buffer, row.format.c_str(), 5);
    std::string told = testing::internal::GetCapturedStderr();
    debug_set_level(0);
    if (*row.told == '\0') {
      EXPECT_EQ(told, "");
    } else {
      EXPECT_TRUE(told.ends_with(row.told)) << told;
    }
  }
}

// A source whose values are texts, as those of messages are: it is asked in the order of positions,
// each with the class of its conversion.
struct recording_cursor_t : fmt_cursor_t {
  std::vector<int> asked;
};

template <int cls>
void record(fmt_slot_t &slot, fmt_cursor_t &cursor, const char *locale) {
  EXPECT_STREQ(locale, "de_DE");
  static_cast<recording_cursor_t &>(cursor).asked.push_back(cls);
  slot = {};
  if (cls == FMT_TEXT) slot.s = {nullptr, 0};
}

TEST(format, a_source_is_asked_once_a_position_in_order) {
  const fmt_source_t source = {record<0>, record<1>, record<2>, record<3>, record<4>,
                               record<5>, record<6>, record<7>, record<8>, record<9>};
  recording_cursor_t cursor;
  char text[1000];
  i18n_vsnprintf(text, sizeof text, nullptr, source, "de_DE",
                 "%10$lu%9$p%8$s%7$Lf%6$g%5$lld%4$ld%3$x%2$hd%1$m", cursor);
  EXPECT_EQ(cursor.asked, (std::vector<int>{0, 1, 2, 3, 4, 5, 6, 7, 8, 9}));
  // A null string of a source is the engine's to print.
  EXPECT_NE(std::string(text).find("<null>"), std::string::npos);
  // A position that nothing names is fetched as an unknown.
  cursor.asked.clear();
  i18n_vsnprintf(text, sizeof text, nullptr, source, "de_DE", "%3$d", cursor);
  EXPECT_EQ(cursor.asked, (std::vector<int>{0, 0, 1}));
}

}  // namespace
}  // namespace qvr
