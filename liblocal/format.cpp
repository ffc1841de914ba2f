#include "format.h"

#include <algorithm>
#include <climits>
#include <cstring>
#include <new>

#include "debug_words.h"
#include "display_width.h"
#include "format_spec.h"

namespace qvr {

namespace {

constexpr std::size_t NO_LIMIT = static_cast<std::size_t>(-1);

// What the first walk learns: the class of each position, the highest position, and the first
// conversions as they were read, which spares the second walk to read them again.
struct scan_t {
  static constexpr std::size_t KEPT = 8;

  std::array<std::uint8_t, FMT_POSITIONS> classes;  // up to `count`
  int count = 0;
  std::array<fmt_conv_t, KEPT> kept;
  std::size_t conversions = 0;

  void note(int position, fmt_class cls) {
    int top = std::min(position, static_cast<int>(FMT_POSITIONS) - 1);
    while (count < top) classes[static_cast<std::size_t>(++count)] = FMT_UNKNOWN;
    count = std::max(count, position);
    if (position < static_cast<int>(FMT_POSITIONS)) {
      classes[static_cast<std::size_t>(position)] = cls;
    }
  }
};

// The index of the next conversion at or behind `at`, or npos; "%%" is plain.
std::size_t next_conversion(std::string_view format, std::size_t at) {
  while ((at = format.find('%', at)) != std::string_view::npos) {
    if (at + 1 >= format.size() || format[at + 1] != '%') return at;
    at += 2;
  }
  return at;
}

void scan_format(std::string_view format, scan_t &scan) {
  int position = 1;
  std::size_t at = 0;
  while ((at = next_conversion(format, at)) != std::string_view::npos) {
    fmt_conv_t spare;
    fmt_conv_t &conv = scan.conversions < scan_t::KEPT ? scan.kept[scan.conversions] : spare;
    scan.conversions++;
    at = fmt_read_conv(format, at, position, conv);
    if (conv.width_pos > 0) scan.note(conv.width_pos, FMT_INT);
    if (conv.precision_pos > 0) scan.note(conv.precision_pos, FMT_INT);
    if (conv.value_pos <= 0 || (conv.letter == 0 && conv.modifier == FMT_NONE)) continue;
    if (conv.cls == FMT_UNKNOWN) {
      KS_DEBUG(2, "Failed to identify '%%%c' string formatting symbol\n", conv.letter);
    }
    scan.note(conv.value_pos, conv.cls);
  }
}

// Where the text goes. `add` and its kin answer false when the buffer is full, which ends the call.
class result_t {
 public:
  result_t(char *buffer, std::size_t capacity, std::unique_ptr<char[]> *allocated, bool grows)
      : buffer_(buffer), capacity_(capacity), allocated_(allocated), grows_(grows) {}

  bool bounded() const { return capacity_ != NO_LIMIT; }
  std::size_t capacity() const { return capacity_; }
  bool grows() const { return grows_; }

  // Makes sure that `room` bytes and a NUL can follow, or tells that they cannot.
  bool reserve(std::size_t room) {
    if (!bounded() || used_ + room < capacity_) return true;
    if (!grows_) return truncated();
    std::size_t wanted = capacity_ + room + FMT_GROWTH;
    std::unique_ptr<char[]> larger(new (std::nothrow) char[wanted]);
    if (larger == nullptr) {
      KS_DEBUG(6, "i18n_vsnprintf: Truncation detected - new buffer allocation failure\n");
      return false;
    }
    std::memcpy(larger.get(), buffer_, used_);
    *allocated_ = std::move(larger);
    buffer_ = allocated_->get();
    capacity_ = wanted;
    return true;
  }

  bool add(const char *text, std::size_t size) {
    if (size == 0) return true;  // an empty text may lie nowhere
    if (bounded() && used_ + size >= capacity_) {
      if (!grows_) {
        std::size_t part = capacity_ - 1 - used_;
        std::memcpy(buffer_ + used_, text, part);
        used_ += part;
        return part == size || truncated();
      }
      if (!reserve(size)) return false;
    }
    std::memcpy(buffer_ + used_, text, size);
    used_ += size;
    return true;
  }
  bool add(std::string_view text) { return add(text.data(), text.size()); }

  bool fill(char c, std::size_t count) {
    if (bounded() && used_ + count >= capacity_) {
      if (grows_) {
        if (!reserve(count)) return false;
      } else {
        std::size_t part = capacity_ - 1 - used_;
        std::memset(buffer_ + used_, c, part);
        used_ += part;
        return part == count || truncated();
      }
    }
    std::memset(buffer_ + used_, c, count);
    used_ += count;
    return true;
  }

  // The platform's print of one conversion. A conversion that the platform refuses prints its text.
  template <class T>
  bool platform(const char *spec, T value, std::string_view own_text) {
    for (;;) {
      // The platform takes no more than an int can count.
      std::size_t room = std::min(capacity_ - used_, static_cast<std::size_t>(INT_MAX));
// The one format of the project that is made at run time: spec() writes it, from a conversion that
// the reader has checked, with the modifier of T.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
      int length = std::snprintf(buffer_ + used_, room, spec, value);
#pragma GCC diagnostic pop
      if (length < 0) return add(own_text);
      auto size = static_cast<std::size_t>(length);
      if (size < room) {
        used_ += size;
        return true;
      }
      if (!grows_) {
        used_ = capacity_ - 1;
        return truncated();
      }
      if (!reserve(size)) return false;
    }
  }

  std::size_t finish() {
    buffer_[used_] = '\0';
    return used_;
  }

 private:
  bool truncated() {
    KS_DEBUG(6, "i18n_vsnprintf: Truncation detected\n");
    return false;
  }

  char *buffer_;
  std::size_t capacity_;
  std::size_t used_ = 0;
  std::unique_ptr<char[]> *allocated_;
  bool grows_;
};

enum class outcome { goes_on, full, failed };

// The second walk: prints one conversion after the other.
class printer {
 public:
  printer(result_t &out, const scan_t &scan, const fmt_slot_t *slots)
      : out_(out), scan_(scan), slots_(slots) {}

  outcome print(fmt_conv_t &conv) {
    take_star(conv.width_pos, conv.width);
    take_star(conv.precision_pos, conv.precision);
    if (conv.width < 0 && conv.width != FMT_ABSENT) {
      conv.flags |= FMT_LEFT;
      conv.width = -conv.width;
    }
    if (!spec_fits(conv)) return outcome::failed;
    clamp(conv.width);
    clamp(conv.precision);
    const fmt_slot_t *slot = value_of(conv);
    if (slot == nullptr || !fmt_conv_is_safe(conv)) return state(out_.add(conv.text));
    if (conv.cls == FMT_TEXT) return state(text(conv, slot->s));
    int room = std::max(conv.width, conv.precision);
    if (!out_.reserve(room < 0 ? FMT_ASSUMED_ROOM : static_cast<std::size_t>(room))) {
      return outcome::full;
    }
    return state(number(conv, *slot));
  }

 private:
  static outcome state(bool room_left) { return room_left ? outcome::goes_on : outcome::full; }

  // A star's value; the platform has no way to write the lowest int back.
  void take_star(int position, int &number) const {
    if (position <= 0) return;
    auto at = static_cast<std::size_t>(position);
    number = scan_.classes[at] == FMT_INT ? std::max(slots_[at].i, -INT_MAX) : FMT_ABSENT;
  }

  // No width may ask for more than there can be room for: formats come from catalogues and peers.
  void clamp(int &number) const {
    if (!out_.bounded()) return;
    std::size_t most = out_.grows() ? FMT_WIDTH_MAX : out_.capacity();
    if (number > 0 && static_cast<std::size_t>(number) > most) number = static_cast<int>(most);
  }

  const fmt_slot_t *value_of(const fmt_conv_t &conv) const {
    auto at = static_cast<std::size_t>(conv.value_pos);
    if (conv.letter == 0 || conv.value_pos <= 0 || scan_.classes[at] != conv.cls) return nullptr;
    return &slots_[at];
  }

  // The length that the specification has with its width and precision, as the platform gets it.
  static bool spec_fits(const fmt_conv_t &conv) {
    std::size_t length = 1 + conv.flag_count;
    if (length + 24 < FMT_SPEC_SIZE) return true;
    auto digits = [](int number) {
      std::size_t count = 1;
      for (; number > 9; number /= 10) count++;
      return count;
    };
    if (conv.width >= 0) length += digits(conv.width);
    if (length > FMT_SPEC_SIZE - 1) {
      KS_DEBUG(6, "i18n_vsnprintf: Truncation detected during parameter width formatting\n");
      return false;
    }
    if (conv.precision >= 0) length += 1 + digits(conv.precision);
    if (length + 3 > FMT_SPEC_SIZE - 1) {  // with modifier and letter
      KS_DEBUG(6, "i18n_vsnprintf: Truncation detected during parameter precision formatting\n");
      return false;
    }
    return true;
  }

  // The bytes of `text` that fit `cells`; a wide character is not cut in half, and the cut never
  // stands on a byte that continues a character.
  static std::size_t cut_at_cells(std::string_view text, std::size_t cells) {
    std::size_t at = 0;
    while (at < text.size()) {
      char_cells_t next = i18n_char_cells(text.substr(at));
      if (next.cells > cells) break;
      cells -= next.cells;
      at += next.bytes;
    }
    while (at > 0 && at < text.size() && (static_cast<unsigned char>(text[at]) & 0xC0) == 0x80)
      at--;
    return at;
  }

  bool text(const fmt_conv_t &conv, fmt_text_t value) {
    std::string_view text = value.data == nullptr ? std::string_view("<null>")
                                                  : std::string_view(value.data, value.size);
    if (conv.precision >= 0) {
      text = text.substr(0, cut_at_cells(text, static_cast<std::size_t>(conv.precision)));
    }
    if (conv.width < 0) {
      std::size_t assumed = conv.precision < 0 ? FMT_ASSUMED_ROOM : 0;
      return out_.reserve(std::max(assumed, text.size())) && out_.add(text);
    }
    std::size_t cells = i18n_strwidth(text), width = static_cast<std::size_t>(conv.width);
    std::size_t pad = width > cells ? width - cells : 0;
    if (!out_.reserve(text.size() + pad)) return false;
    if ((conv.flags & FMT_LEFT) != 0) return out_.add(text) && out_.fill(' ', pad);
    return out_.fill(' ', pad) && out_.add(text);
  }

  bool number(const fmt_conv_t &conv, const fmt_slot_t &slot) {
    switch (conv.cls) {
      case FMT_UNKNOWN:
        return platform(conv, slot.i);
      case FMT_INT:
        if (conv.letter == 'c') {
          return conv.flags == 0 || conv.flags == FMT_LEFT ? character(conv, slot.i)
                                                           : platform(conv, slot.i);
        }
        return integer(conv, slot.i, static_cast<unsigned>(slot.i));
      case FMT_UINT:
        return integer(conv, slot.u, slot.u);
      case FMT_LONG:
        return integer(conv, slot.l, static_cast<unsigned long>(slot.l));
      case FMT_LLONG:
        return integer(conv, slot.ll, static_cast<unsigned long long>(slot.ll));
      case FMT_ULONG:
        return integer(conv, static_cast<long>(slot.ul), slot.ul);
      case FMT_DOUBLE:
        return platform(conv, slot.d);
      case FMT_LDOUBLE:
        return platform(conv, slot.ld);
      default:
        return platform(conv, slot.p);
    }
  }

  bool character(const fmt_conv_t &conv, int value) {
    char c = static_cast<char>(value);
    std::size_t pad = conv.width > 1 ? static_cast<std::size_t>(conv.width) - 1 : 0;
    if ((conv.flags & FMT_LEFT) != 0) return out_.add(&c, 1) && out_.fill(' ', pad);
    return out_.fill(' ', pad) && out_.add(&c, 1);
  }

  // The common integers without a call to the platform; what has a precision or a further flag goes
  // there.
  bool integer(const fmt_conv_t &conv, long long as_signed, unsigned long long as_unsigned) {
    bool is_signed = conv.letter == 'd' || conv.letter == 'i';
    if (conv.modifier == FMT_H || conv.modifier == FMT_HH) {
      bool one_byte = conv.modifier == FMT_HH;
      as_signed = one_byte ? static_cast<signed char>(as_signed) : static_cast<short>(as_signed);
      as_unsigned &= one_byte ? 0xFFu : 0xFFFFu;
    }
    if (conv.precision >= 0 || (conv.flags & ~(FMT_LEFT | FMT_ZERO)) != 0) {
      return is_signed ? platform_wide(conv, as_signed) : platform_wide(conv, as_unsigned);
    }
    char digits[32];
    char *end = digits + sizeof digits, *at = end;
    bool negative = is_signed && as_signed < 0;
    unsigned long long rest = is_signed ? static_cast<unsigned long long>(as_signed) : as_unsigned;
    if (negative) rest = 0 - rest;
    if (conv.letter == 'x' || conv.letter == 'X') {
      const char *set = conv.letter == 'x' ? "0123456789abcdef" : "0123456789ABCDEF";
      do *--at = set[rest & 15];
      while ((rest >>= 4) != 0);
    } else if (conv.letter == 'o') {
      do *--at = static_cast<char>('0' + (rest & 7));
      while ((rest >>= 3) != 0);
    } else {
      do *--at = static_cast<char>('0' + rest % 10);
      while ((rest /= 10) != 0);
    }
    auto length = static_cast<std::size_t>(end - at);
    std::size_t width = conv.width < 0 ? 0 : static_cast<std::size_t>(conv.width);
    std::size_t pad = width > length + negative ? width - length - negative : 0;
    if (conv.flags == FMT_ZERO) {
      return (!negative || out_.add("-", 1)) && out_.fill('0', pad) && out_.add(at, length);
    }
    if (negative) *--at = '-';
    length += negative;
    if (pad == 0) return out_.add(at, length);
    if ((conv.flags & FMT_LEFT) != 0) return out_.add(at, length) && out_.fill(' ', pad);
    return out_.fill(' ', pad) && out_.add(at, length);
  }

  template <class T>
  bool platform_wide(const fmt_conv_t &conv, T value) {
    spec(conv, "ll");
    return out_.platform(spec_.data(), value, conv.text);
  }

  template <class T>
  bool platform(const fmt_conv_t &conv, T value) {
    spec(conv, conv.modifier == FMT_BIG_L ? "L" : "");
    return out_.platform(spec_.data(), value, conv.text);
  }

  // Rebuilds the specification for the platform in spec_.
  void spec(const fmt_conv_t &conv, std::string_view modifier) {
    std::size_t at = 0;
    auto put = [&](char c) { spec_[at++] = c; };
    auto put_number = [&](int number) {
      char digits[12];
      std::size_t count = 0;
      do digits[count++] = static_cast<char>('0' + number % 10);
      while ((number /= 10) != 0);
      while (count > 0) put(digits[--count]);
    };
    put('%');
    for (std::size_t bit = 0; bit < FMT_FLAG_CHARS.size(); bit++) {
      if ((conv.flags >> bit & 1) != 0) put(FMT_FLAG_CHARS[bit]);
    }
    if (conv.width >= 0) {
      put_number(conv.width);
    }
    if (conv.precision >= 0) {
      put('.');
      put_number(conv.precision);
    }
    for (char c : modifier) put(c);
    put(conv.letter);
    put('\0');
  }

  result_t &out_;
  const scan_t &scan_;
  const fmt_slot_t *slots_;
  std::array<char, 48> spec_;  // flags, two numbers, modifier, letter
};

// Plain text up to the next conversion, with "%%" as one '%'.
bool add_plain(std::string_view text, result_t &out) {
  for (std::size_t at; (at = text.find('%')) != std::string_view::npos;) {
    if (!out.add(text.data(), at + 1)) return false;
    text.remove_prefix(std::min(at + 2, text.size()));
  }
  return out.add(text);
}

outcome print_all(std::string_view format, const scan_t &scan, result_t &out, printer &print) {
  int position = 1;
  std::size_t at = 0;
  for (std::size_t index = 0;; index++) {
    std::size_t next = next_conversion(format, at);
    if (!add_plain(format.substr(at, next - at), out)) return outcome::full;
    if (next == std::string_view::npos) return outcome::goes_on;
    fmt_conv_t conv;
    if (index < scan_t::KEPT) {
      conv = scan.kept[index];
      at = next + conv.text.size();
      position = conv.next_pos;
    } else {
      at = fmt_read_conv(format, next, position, conv);
    }
    outcome state = print.print(conv);
    if (state != outcome::goes_on) return state;
  }
}

}  // namespace

std::size_t i18n_vsnprintf(char *buffer, std::size_t capacity, std::unique_ptr<char[]> *allocated,
                           const fmt_source_t &source, const char *locale, std::string_view format,
                           fmt_cursor_t &cursor) {
  if (buffer == nullptr && allocated == nullptr) return 0;
  bool owns = buffer == nullptr, grows = owns && capacity == 0;
  auto fail = [&]() -> std::size_t {
    if (owns) {
      allocated->reset();
    } else {
      buffer[0] = '\0';
    }
    return 0;
  };
  scan_t scan;
  scan_format(format, scan);
  if (scan.count >= static_cast<int>(FMT_POSITIONS)) {
    KS_DEBUG(6, "Too many arguments. maxpos(%d) must be less than %lu.\n", scan.count,
             static_cast<unsigned long>(FMT_POSITIONS));
    return fail();
  }
  std::array<fmt_slot_t, FMT_POSITIONS> slots;
  for (std::size_t at = 1; at <= static_cast<std::size_t>(scan.count); at++) {
    source[scan.classes[at]](slots[at], cursor, locale);
  }
  if (grows) capacity = format.size() + FMT_GROWTH;
  if (owns) {
    allocated->reset(new (std::nothrow) char[capacity]);
    buffer = allocated->get();
    if (buffer == nullptr) return 0;
  } else if (capacity == 0) {
    capacity = NO_LIMIT;
  }
  result_t out(buffer, capacity, allocated, grows);
  printer print(out, scan, slots.data());
  if (print_all(format, scan, out, print) == outcome::failed) return fail();
  return out.finish();
}

std::size_t i18n_arg_count(std::string_view format) {
  scan_t scan;
  scan_format(format, scan);
  return static_cast<std::size_t>(scan.count);
}

}  // namespace qvr
