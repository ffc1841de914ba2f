#include "format_spec.h"

namespace qvr {

namespace {

constexpr int NUMBER_MAX = 1 << 24;  // what digits may count to; more is no width of this world

constexpr std::array<fmt_class, 128> class_of_letter = [] {
  std::array<fmt_class, 128> table{};
  for (char c : {'c', 'd', 'h', 'i'}) table[static_cast<unsigned char>(c)] = FMT_INT;
  for (char c : {'X', 'o', 'u', 'x'}) table[static_cast<unsigned char>(c)] = FMT_UINT;
  for (char c : {'E', 'G', 'e', 'f', 'g'}) table[static_cast<unsigned char>(c)] = FMT_DOUBLE;
  table['l'] = FMT_LONG;
  table['L'] = FMT_LDOUBLE;
  table['s'] = FMT_TEXT;
  table['p'] = FMT_POINTER;
  return table;
}();

bool is_digit(char c) {
  return c >= '0' && c <= '9';
}

bool is_letter(char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}

// Reads what stands between the '%' and the first letter.
class reader {
 public:
  reader(std::string_view format, std::size_t at, int &position, fmt_conv_t &conv)
      : format_(format), at_(at + 1), position_(position), conv_(conv) {
    conv_ = fmt_conv_t{};
    conv_.width = conv_.precision = FMT_ABSENT;
  }

  std::size_t read() {
    std::size_t start = at_ - 1;
    while (at_ < format_.size() && !is_letter(format_[at_])) sign(format_[at_++]);
    if (at_ < format_.size()) letter();
    conv_.text = format_.substr(start, at_ - start);
    conv_.next_pos = position_;
    return at_;
  }

 private:
  void sign(char c) {
    switch (c) {
      case '*':
        return star();
      case '.':
        if (has_number_) conv_.width = number_;
        conv_.precision = 0;
        point_ = true;
        return clear_number();
      case '$':
        return dollar();
      default:
        // Behind a point a 0 is a digit: no flag can stand there.
        if (is_digit(c) && (c != '0' || number_ != 0 || point_ || star_)) return digit(c);
        return flag(c);
    }
  }

  void digit(char c) {
    has_number_ = true;
    number_ = number_ * 10 + (c - '0');
    if (number_ > NUMBER_MAX) number_ = NUMBER_MAX;
  }

  void flag(char c) {
    std::size_t bit = FMT_FLAG_CHARS.find(c);
    bool known = bit != std::string_view::npos;
    conv_.flags |= known ? static_cast<std::uint8_t>(1 << bit) : std::uint8_t{FMT_FOREIGN};
    conv_.flag_count++;
  }

  void star() {
    if (at_ < format_.size() && is_digit(format_[at_])) {
      star_ = true;  // a numbered one: the digits and a '$' follow
    } else {
      if (!held_ && (conv_.value_pos > 0 || number_ > 0)) {
        // The conversion keeps its position; the stars take those behind.
        if (conv_.value_pos == 0) conv_.value_pos = position_;
        position_ = conv_.value_pos + 1;
        held_ = true;
      }
      star_position() = position_++;
    }
    clear_number();
  }

  void dollar() {
    if (number_ > 0) (star_ ? star_position() : conv_.value_pos) = number_;
    star_ = false;
    clear_number();
  }

  int &star_position() { return point_ ? conv_.precision_pos : conv_.width_pos; }

  void clear_number() {
    number_ = 0;
    has_number_ = false;
  }

  void letter() {
    if (has_number_) (point_ ? conv_.precision : conv_.width) = number_;
    char first = format_[at_++];
    char second = at_ < format_.size() ? format_[at_] : '\0';
    conv_.cls = static_cast<unsigned char>(first) < 128
                    ? class_of_letter[static_cast<unsigned char>(first)]
                    : FMT_UNKNOWN;
    if (first == 'l' && second == 'l') conv_.cls = FMT_LLONG;
    if (first == 'l' && second == 'u') conv_.cls = FMT_ULONG;
    conv_.letter = first;
    if (first == 'h' || first == 'l' || first == 'L') modified(first);
    if (conv_.value_pos == 0) conv_.value_pos = position_;
    if (!held_) position_ = conv_.value_pos + 1;
  }

  void modified(char first) {
    bool twice = first != 'L' && at_ < format_.size() && format_[at_] == first;
    if (twice) at_++;
    conv_.modifier = first == 'L'   ? FMT_BIG_L
                     : first == 'h' ? (twice ? FMT_HH : FMT_H)
                                    : (twice ? FMT_LL : FMT_L);
    if (at_ < format_.size() && is_letter(format_[at_])) {
      conv_.letter = format_[at_++];
    } else {
      conv_.letter = 0;
    }
  }

  std::string_view format_;
  std::size_t at_;
  int &position_;
  fmt_conv_t &conv_;
  int number_ = 0;
  bool has_number_ = false;
  bool point_ = false;
  bool star_ = false;
  bool held_ = false;  // the value's position lies in front of those of the stars
};

}  // namespace

std::size_t fmt_read_conv(std::string_view format, std::size_t at, int &position,
                          fmt_conv_t &conv) {
  return reader(format, at, position, conv).read();
}

bool fmt_conv_is_safe(const fmt_conv_t &conv) {
  if ((conv.flags & FMT_FOREIGN) != 0) return false;
  auto one_of = [&](std::string_view letters) {
    return conv.letter != 0 && letters.find(conv.letter) != std::string_view::npos;
  };
  switch (conv.cls) {
    case FMT_INT:
      return one_of(conv.modifier == FMT_NONE ? "cdi" : "diouxX");
    case FMT_UINT:
    case FMT_TEXT:
    case FMT_POINTER:
      return true;
    case FMT_LONG:
    case FMT_LLONG:
    case FMT_ULONG:
      return one_of("diouxX");
    case FMT_DOUBLE:
      return true;
    case FMT_LDOUBLE:
      return one_of("EGefgaAF");
    default:
      // Pointers that nobody passed, values that lie elsewhere than an int does, and modifiers
      // that the platform would take for half a conversion.
      return conv.letter != 0 && !one_of("nSCaAFIZjqtwz");
  }
}

}  // namespace qvr
