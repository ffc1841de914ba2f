#include "query_value.h"

#include <regex.h>

#include <limits>

#include "dates.h"
#include "ss_levels.h"

namespace qvr {

namespace {

constexpr std::uint64_t U64_MAX = std::numeric_limits<std::uint64_t>::max();
constexpr std::uint64_t COUNT_MAX = std::numeric_limits<std::uint32_t>::max();

// What a reader has to know beside its text.
struct reading_t {
  const mr_t &field;
  comparator_t comparator;
  name_to_id_t name_to_id;

  bool above() const { return comparator.strict && (comparator.bits & QC_LOWER) != 0; }
  bool below() const { return comparator.strict && (comparator.bits & QC_UPPER) != 0; }
};

bool step_unsigned(const reading_t &reading, std::uint64_t most, std::uint64_t &number) {
  if (reading.above()) return number++ < most;
  if (reading.below()) return number-- > 0;
  return true;
}

// ---- Texts

// An empty pattern matches nothing that anybody means.
bool pattern_compiles(const std::string &pattern) {
  regex_t compiled;
  if (pattern.empty() || regcomp(&compiled, pattern.c_str(), REG_ICASE | REG_NOSUB) != 0) {
    return false;
  }
  regfree(&compiled);
  return true;
}

bool read_text(spec_reader &in, const reading_t &reading, query_value_t &value) {
  if (!in.take_text(value.text)) return false;
  if (reading.field.mr_key == "annotation") return pattern_compiles(value.text);
  if (reading.field.mr_key == "name") value.text = reading.name_to_id(value.text);
  return true;
}

// ---- Times

bool store_seconds(std::int64_t time, const reading_t &reading, query_value_t &value) {
  if (reading.above()) {
    if (time_is_forever(time)) return false;
    time++;
  }
  if (reading.below()) {
    if (time == 0) return false;
    time--;
  }
  value.number = static_cast<std::uint64_t>(time);
  return true;
}

bool read_time(spec_reader &in, const reading_t &reading, query_value_t &value) {
  if (!in.take_text(value.text)) return false;
  std::int64_t time = qvr_getdate(value.text);
  return time != TIME_FAILED && store_seconds(time, reading, value);
}

bool read_duration(spec_reader &in, const reading_t &reading, query_value_t &value) {
  if (!in.take_text(value.text)) return false;
  std::uint32_t flags = 0;
  std::int64_t span = qvr_getdate_from(value.text, 0, &flags);
  return flags == DATE_HAS_REL && span >= 0 && store_seconds(span, reading, value);
}

// ---- Numbers

bool read_decimal(spec_reader &in, std::uint64_t most, std::uint64_t &number) {
  if (!number_of(in.take_digits(), most, number)) return false;
  in.skip_blanks();
  return in.at_separator();
}

bool read_number(spec_reader &in, const reading_t &reading, query_value_t &value) {
  return read_decimal(in, U64_MAX, value.number) && step_unsigned(reading, U64_MAX, value.number);
}

bool read_count(spec_reader &in, const reading_t &reading, query_value_t &value) {
  constexpr std::uint64_t used_full = 101;
  spec_reader ahead = in;
  if (reading.field.mr_key == "%used" && same_word(trim_blanks(ahead.take_until(",")), "full")) {
    in = ahead;
    value.number = used_full;
  } else if (!read_decimal(in, COUNT_MAX, value.number)) {
    return false;
  }
  return step_unsigned(reading, COUNT_MAX, value.number);
}

// ---- Sizes

struct unit_t {
  char letter;
  std::uint64_t kilobytes;
};
constexpr unit_t units[] = {
    {'K', 1},          {'M', 1000},          {'G', 1000000},
    {'T', 1000000000}, {'P', 1000000000000}, {'E', 1000000000000000},
};

const unit_t *find_unit(char c) {
  for (const unit_t &unit : units) {
    if (unit.letter == c || (unit.letter | 0x20) == c) return &unit;
  }
  return nullptr;
}

// A number with a unit, in kilobytes: digits, a point with 1 to 6 digits, the letter, a "b".
bool parse_size(std::string_view text, std::uint64_t &kilobytes) {
  spec_reader in(text);
  std::uint64_t whole = 0, fraction = 0, scale = 1;
  if (!number_of(in.take_digits(), U64_MAX, whole)) return false;
  if (in.take('.')) {
    std::string_view digits = in.take_digits();
    if (digits.size() > 6 || !number_of(digits, U64_MAX, fraction)) return false;
    for (std::size_t i = 0; i < digits.size(); i++) scale *= 10;
  }
  const unit_t *unit = find_unit(in.peek());
  if (unit == nullptr) return false;
  in.skip();
  if (!in.take('b')) in.take('B');
  if (!in.at_end()) return false;
  // Units and scales are powers of ten, so that a part is a whole number or below a kilobyte.
  std::uint64_t part = unit->kilobytes >= scale
                           ? fraction * (unit->kilobytes / scale)
                           : (fraction * unit->kilobytes + 5 * (scale / 10)) / scale;
  return !__builtin_mul_overflow(whole, unit->kilobytes, &kilobytes) &&
         !__builtin_add_overflow(kilobytes, part, &kilobytes);
}

// The characters of the value without its blanks.
bool size_text(std::string_view value, std::string &text) {
  constexpr std::size_t longest = 30;
  text.clear();
  for (char c : value) {
    if (c != ' ') text += c;
  }
  return text.size() <= longest;
}

bool read_kilobytes(spec_reader &in, const reading_t &reading, query_value_t &value) {
  spec_reader plain = in;
  std::string text;
  if (!size_text(in.take_until(","), text)) return false;
  bool digit_ends = !text.empty() && text.back() >= '0' && text.back() <= '9';
  if (digit_ends && text.find_first_of("kKmMgG") == std::string::npos) text += 'K';
  if (!parse_size(text, value.number) && !read_decimal(plain, U64_MAX, value.number)) return false;
  return step_unsigned(reading, U64_MAX, value.number);
}

bool read_bytes(spec_reader &in, const reading_t &reading, query_value_t &value) {
  constexpr std::uint64_t most_kilobytes = 18014398509481982;
  spec_reader plain = in;
  std::string text;
  if (!size_text(in.take_until(","), text)) return false;
  if (parse_size(text, value.number)) {
    if (value.number > most_kilobytes) return false;
    value.number *= 1024;
  } else if (!read_decimal(plain, U64_MAX, value.number)) {
    return false;
  }
  return step_unsigned(reading, U64_MAX, value.number);
}

// ---- Truth values and levels

bool read_truth(spec_reader &in, const reading_t &, query_value_t &value) {
  std::string_view word = trim_blanks(in.take_until(","));
  bool is_true = same_word(word, "t") || same_word(word, "true");
  value.number = is_true ? 1 : 0;
  return is_true || same_word(word, "f") || same_word(word, "false");
}

bool read_level(spec_reader &in, const reading_t &reading, query_value_t &value) {
  constexpr std::size_t longest = 31;
  std::string_view word = in.take_until(" ,").substr(0, longest);
  in.take_until(",");
  std::int64_t level = level_parse(word);
  if (level == LEVEL_SKIP) return false;
  if (level == LEVEL_MANUAL && !word.starts_with('m')) return false;
  if (reading.above() && level++ > 9) return false;
  if (reading.below() && level-- < -2) return false;
  value.number = static_cast<std::uint64_t>(level);
  return true;
}

struct type_row_t {
  rpt_type type;
  bool text;       // values are texts, several of them make a list
  bool is_signed;  // values compare as signed numbers
  bool (*read)(spec_reader &, const reading_t &, query_value_t &);
};

constexpr type_row_t type_rows[] = {
    {RPT_STRING, true, false, read_text},  {RPT_UNSIGNED, false, false, read_count},
    {RPT_BYTES, false, false, read_bytes}, {RPT_KILOBYTES, false, false, read_kilobytes},
    {RPT_TIME, false, true, read_time},    {RPT_FLAGS, false, false, read_truth},
    {RPT_LEVEL, false, true, read_level},  {RPT_NUMBER, false, false, read_number},
    {RPT_ID, true, false, read_text},      {RPT_DURATION, false, true, read_duration},
};

const type_row_t *find_type(rpt_type type) {
  for (const type_row_t &row : type_rows) {
    if (row.type == type) return &row;
  }
  return nullptr;
}

}  // namespace

bool query_type_is_text(rpt_type type) {
  const type_row_t *row = find_type(type);
  return row != nullptr && row->text;
}

bool query_type_is_signed(rpt_type type) {
  const type_row_t *row = find_type(type);
  return row != nullptr && row->is_signed;
}

bool read_query_value(spec_reader &in, const mr_t &field, comparator_t comparator,
                      name_to_id_t name_to_id, query_value_t &value) {
  const type_row_t *row = find_type(field.mr_type);
  return row != nullptr && row->read(in, {field, comparator, name_to_id}, value);
}

}  // namespace qvr
