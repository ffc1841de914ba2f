#include "date_lexer.h"

#include <strings.h>

#include <algorithm>
#include <limits>

namespace qvr {

namespace {

struct word_t {
  std::string_view word;
  date_kind kind;
  std::int64_t value;
};

// Matched whole, or by an abbreviation of three letters.
constexpr word_t calendar_words[] = {
    {"january", tMONTH, 1},   {"february", tMONTH, 2}, {"march", tMONTH, 3},
    {"april", tMONTH, 4},     {"may", tMONTH, 5},      {"june", tMONTH, 6},
    {"july", tMONTH, 7},      {"august", tMONTH, 8},   {"september", tMONTH, 9},
    {"sept", tMONTH, 9},      {"october", tMONTH, 10}, {"november", tMONTH, 11},
    {"december", tMONTH, 12}, {"sunday", tDAY, 0},     {"monday", tDAY, 1},
    {"tuesday", tDAY, 2},     {"tues", tDAY, 2},       {"wednesday", tDAY, 3},
    {"wednes", tDAY, 3},      {"thursday", tDAY, 4},   {"thur", tDAY, 4},
    {"thurs", tDAY, 4},       {"friday", tDAY, 5},     {"saturday", tDAY, 6},
};

constexpr word_t meridian_words[] = {
    {"a.m", tMERIDIAN, 1},
    {"am", tMERIDIAN, 1},
    {"p.m", tMERIDIAN, 2},
    {"pm", tMERIDIAN, 2},
};

// In minutes west of UTC.
constexpr word_t zone_words[] = {
    {"nst", tZONE, 210},       {"ast", tZONE, 240},       {"est", tZONE, 300},
    {"cst", tZONE, 360},       {"mst", tZONE, 420},       {"pst", tZONE, 480},
    {"yst", tZONE, 540},       {"hst", tZONE, 600},       {"gmt", tZONE, 0},
    {"eet", tZONE, -120},      {"met", tZONE, -60},       {"wet", tZONE, 0},
    {"jst", tZONE, -540},      {"aest", tZONE, -600},     {"acst", tZONE, -570},
    {"awst", tZONE, -480},     {"adt", tDAYZONE, 240},    {"edt", tDAYZONE, 300},
    {"cdt", tDAYZONE, 360},    {"mdt", tDAYZONE, 420},    {"pdt", tDAYZONE, 480},
    {"ydt", tDAYZONE, 540},    {"hdt", tDAYZONE, 600},    {"bst", tDAYZONE, 0},
    {"eest", tDAYZONE, -120},  {"mest", tDAYZONE, -60},   {"west", tDAYZONE, 0},
    {"aesst", tDAYZONE, -600}, {"acsst", tDAYZONE, -570},
};

// Matched with and without a final "s".
constexpr word_t unit_words[] = {
    {"decade", tMONTH_UNIT, 120},
    {"year", tMONTH_UNIT, 12},
    {"quarter", tMONTH_UNIT, 3},
    {"month", tMONTH_UNIT, 1},
    {"fortnight", tMINUTE_UNIT, 20160},
    {"week", tMINUTE_UNIT, 10080},
    {"day", tMINUTE_UNIT, 1440},
    {"hour", tMINUTE_UNIT, 60},
    {"minute", tMINUTE_UNIT, 1},
    {"min", tMINUTE_UNIT, 1},
    {"now", tMINUTE_UNIT, 0},
    {"seconds", tSEC_UNIT, 1},
    {"sec", tSEC_UNIT, 1},
    {"tomorrow", tDAY_UNIT, 1440},
    {"yesterday", tDAY_UNIT, -1440},
    {"today", tDAY_UNIT, 0},
};

constexpr word_t other_words[] = {
    {"last", tNUMBER, -1},     {"previous", tNUMBER, -1}, {"this", tNUMBER, 0},
    {"next", tNUMBER, 1},      {"one", tNUMBER, 1},       {"two", tNUMBER, 2},
    {"three", tNUMBER, 3},     {"four", tNUMBER, 4},      {"five", tNUMBER, 5},
    {"six", tNUMBER, 6},       {"seven", tNUMBER, 7},     {"eight", tNUMBER, 8},
    {"nine", tNUMBER, 9},      {"ten", tNUMBER, 10},      {"eleven", tNUMBER, 11},
    {"twelve", tNUMBER, 12},   {"first", tORDINAL, 1},    {"second", tORDINAL, 2},
    {"third", tORDINAL, 3},    {"fourth", tORDINAL, 4},   {"fifth", tORDINAL, 5},
    {"sixth", tORDINAL, 6},    {"seventh", tORDINAL, 7},  {"eighth", tORDINAL, 8},
    {"ninth", tORDINAL, 9},    {"tenth", tORDINAL, 10},   {"eleventh", tORDINAL, 11},
    {"twelfth", tORDINAL, 12}, {"ago", tAGO, 1},          {"every", tEVERY, 1},
};

// The military zones of the letters a to z, in minutes west of UTC; j is none.
constexpr std::int64_t NO_ZONE = 1;
constexpr std::int64_t military_zones[26] = {
    60,  120,  180,  240,  300,  360,  420,  480,  540,  NO_ZONE, 600,  660,  720,
    -60, -120, -180, -240, -300, -360, -420, -480, -540, -600,    -660, -720, 0};

constexpr std::size_t WORD_MAX = 31;

using token_t = std::pair<date_kind, std::int64_t>;

template <std::size_t N>
const word_t *find(const word_t (&words)[N], std::string_view word) {
  for (const word_t &row : words) {
    if (row.word == word) return &row;
  }
  return nullptr;
}

const word_t *find_abbreviation(std::string_view word) {
  for (const word_t &row : calendar_words) {
    if (row.word.substr(0, 3) == word) return &row;
  }
  return nullptr;
}

// Zones are also written with a "." behind each letter.
const word_t *find_zone(std::string_view word) {
  if (const word_t *row = find(zone_words, word)) return row;
  std::string letters;
  for (std::size_t i = 0; i < word.size(); i++) {
    if ((word[i] == '.') != (i % 2 == 1)) return nullptr;
    if (word[i] != '.') letters += word[i];
  }
  return find(zone_words, letters);
}

const word_t *find_unit(std::string_view word) {
  if (const word_t *row = find(unit_words, word)) return row;
  if (!word.ends_with('s')) return nullptr;
  return find(unit_words, word.substr(0, word.size() - 1));
}

bool same_name(std::string_view a, std::string_view b) {
  return a.size() == b.size() && strncasecmp(a.data(), b.data(), a.size()) == 0;
}

token_t look_up(std::string word, std::string_view local_zone) {
  bool abbreviation = word.size() == 3;
  if (word.size() == 4 && word[3] == '.') {
    abbreviation = true;
    word.pop_back();
  }
  const word_t *row = abbreviation ? find_abbreviation(word) : find(calendar_words, word);
  if (row != nullptr) return {row->kind, row->value};
  if (word == "gmt") return {tGMT, 0};
  if (!local_zone.empty() && same_name(word, local_zone)) return {tLOCAL_ZONE, 0};
  row = find(meridian_words, word);
  if (row == nullptr) row = find_zone(word);
  if (row == nullptr) row = find_unit(word);
  if (row == nullptr) row = find(other_words, word);
  if (row != nullptr) return {row->kind, row->value};
  if (word.size() == 1 && military_zones[word[0] - 'a'] != NO_ZONE) {
    return {tZONE, military_zones[word[0] - 'a']};
  }
  return {tID, 0};
}

bool is_digit(char c) {
  return c >= '0' && c <= '9';
}
bool is_letter(char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}
bool is_space(char c) {
  return c == ' ' || (c >= '\t' && c <= '\r');
}

int hex_digit(char c) {
  if (is_digit(c)) return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

class scanner {
 public:
  scanner(std::string_view text, std::string_view local_zone)
      : text_(text.substr(0, text.find('\0'))), local_zone_(local_zone) {}

  date_tokens scan() {
    while (at_ < text_.size()) one();
    return std::move(tokens_);
  }

 private:
  char peek(std::size_t ahead = 0) const {
    return at_ + ahead < text_.size() ? text_[at_ + ahead] : '\0';
  }

  void put(char kind, std::int64_t value) {
    tokens_.kinds += kind;
    tokens_.values.push_back(value);
  }

  void one() {
    char c = peek();
    if (is_space(c)) {
      at_++;
    } else if (is_digit(c)) {
      put(tNUMBER, number());
    } else if (c == '+' || c == '-') {
      at_++;
      if (is_digit(peek())) put(tNUMBER, c == '-' ? -number() : number());
    } else if (is_letter(c)) {
      word();
    } else if (c == '(') {
      skip_remark();
    } else {
      at_++;
      // A character that is also the letter of a kind must not pass for it.
      put(c == ':' || c == '/' || c == ',' ? c : char{tID}, 0);
    }
  }

  std::int64_t number() {
    int base = 10;
    if (peek() == '0' && (peek(1) | 0x20) == 'x' && hex_digit(peek(2)) >= 0) {
      base = 16;
      at_ += 2;
    }
    std::int64_t value = 0;
    for (int digit; (digit = hex_digit(peek())) >= 0 && digit < base; at_++) {
      if (__builtin_mul_overflow(value, base, &value) ||
          __builtin_add_overflow(value, digit, &value)) {
        value = std::numeric_limits<std::int64_t>::max();
      }
    }
    return value;
  }

  void word() {
    std::string word;
    for (; is_letter(peek()) || peek() == '.'; at_++) {
      char c = peek();
      if (word.size() < WORD_MAX) word += is_letter(c) ? static_cast<char>(c | 0x20) : c;
    }
    auto [kind, value] = look_up(std::move(word), local_zone_);
    if (kind == tGMT && (peek() == '+' || peek() == '-')) {
      kind = peek() == '+' ? tGMT_PLUS : tGMT_MINUS;
      at_++;
    }
    put(kind, value);
  }

  void skip_remark() {
    std::size_t depth = 0;
    do {
      if (peek() == '(') depth++;
      if (peek() == ')') depth--;
      at_++;
    } while (depth > 0 && at_ < text_.size());
  }

  std::string_view text_;
  std::string_view local_zone_;
  std::size_t at_ = 0;
  date_tokens tokens_;
};

}  // namespace

date_tokens date_scan(std::string_view text, std::string_view local_zone) {
  return scanner(text, local_zone).scan();
}

}  // namespace qvr
