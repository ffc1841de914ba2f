#include "ss_levels.h"

#include <algorithm>

namespace qvr {

namespace {

struct level_row_t {
  std::int32_t level;
  std::string_view name;
};

// The commonest first.
constexpr level_row_t level_rows[] = {
    {LEVEL_INCR, "incr"},
    {LEVEL_FULL, "full"},
    {LEVEL_MANUAL, ""},
    {LEVEL_EXEC, "exec"},
    {LEVEL_INCR_SYNTH_FULL, "incr_synth_full"},
    {LEVEL_SYNTH_FULL, "synth_full"},
    {LEVEL_OLD_CONSOLIDATE, "consolidate"},
    {LEVEL_MIGRATION, "migration"},
    {LEVEL_SKIP, "skip"},
    {1, "1"},
    {2, "2"},
    {3, "3"},
    {4, "4"},
    {5, "5"},
    {6, "6"},
    {7, "7"},
    {8, "8"},
    {9, "9"},
    {LEVEL_CONSOLIDATE, "consolidate"},
    {LEVEL_TXNLOG, "txnlog"},
};

// A name as it is read: it counts for texts that begin with its letter and whose length lies
// between the bounds.
struct word_row_t {
  std::string_view name;
  std::size_t shortest;
  std::size_t longest;
  std::int32_t level;
};

constexpr std::size_t any_length = static_cast<std::size_t>(-1);
constexpr word_row_t word_rows[] = {
    {"exec", 1, any_length, LEVEL_EXEC},
    {"full", 1, any_length, LEVEL_FULL},
    {"migration", 1, any_length, LEVEL_MIGRATION},
    {"txnlog", 1, any_length, LEVEL_TXNLOG},
    {"incr", 1, 4, LEVEL_INCR},
    {"incr_synth_full", 10, any_length, LEVEL_INCR_SYNTH_FULL},
    {"skip", 1, 4, LEVEL_SKIP},
    {"synth_full", 5, any_length, LEVEL_SYNTH_FULL},
};

bool ends_word(std::string_view text, std::size_t at) {
  return at >= text.size() || text[at] == ' ' || text[at] == '\n';
}

char lower(char c) {
  return c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c;
}

bool leads(std::string_view text, std::string_view name) {
  std::size_t common = std::min(text.size(), name.size());
  for (std::size_t i = 0; i < common; i++) {
    if (lower(text[i]) != name[i]) return false;
  }
  return text.size() <= name.size() || ends_word(text, name.size());
}

}  // namespace

std::string_view level_name(std::int32_t level) {
  for (const level_row_t &row : level_rows) {
    if (row.level == level) return row.name;
  }
  return level < 0 ? "full" : "incr";
}

std::string_view level_report_name(std::int32_t level) {
  return level == LEVEL_MANUAL ? std::string_view("manual") : level_name(level);
}

std::int32_t level_parse(std::string_view text) {
  if (!text.empty() && text[0] >= '0' && text[0] <= '9')
    return ends_word(text, 1) ? text[0] - '0' : LEVEL_MANUAL;
  for (const word_row_t &row : word_rows) {
    if (text.size() >= row.shortest && text.size() <= row.longest && leads(text, row.name))
      return row.level;
  }
  return LEVEL_MANUAL;
}

}  // namespace qvr
