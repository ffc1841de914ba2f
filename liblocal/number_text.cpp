#include "number_text.h"

#include <array>
#include <cerrno>
#include <charconv>
#include <limits>

namespace qvr {

namespace {

constexpr std::size_t ring_size = 20;
constexpr std::size_t text_size = 65;

char *next_text() {
  thread_local std::array<std::array<char, text_size>, ring_size> ring;
  thread_local std::size_t next = 0;
  char *text = ring[next].data();
  next = (next + 1) % ring_size;
  return text;
}

template <class T>
const char *in_base(T value, int base) {
  char *text = next_text();
  *std::to_chars(text, text + text_size - 1, value, base).ptr = '\0';
  return text;
}

// The value of a digit, or 36 for any other character.
unsigned digit_value(char c) {
  if (c >= '0' && c <= '9') return static_cast<unsigned>(c - '0');
  if (c >= 'a' && c <= 'z') return static_cast<unsigned>(c - 'a') + 10;
  if (c >= 'A' && c <= 'Z') return static_cast<unsigned>(c - 'A') + 10;
  return 36;
}

struct scanned_t {
  std::uint64_t magnitude = 0;
  bool negative = false;
  bool digits = false;
  bool overflow = false;
};

scanned_t scan(const char *text, const char **end, int base) {
  scanned_t result;
  const char *at = text;
  if (*at == '-' || *at == '+') result.negative = *at++ == '-';
  if (base == 16 && at[0] == '0' && (at[1] == 'x' || at[1] == 'X')) at += 2;
  for (unsigned digit; (digit = digit_value(*at)) < static_cast<unsigned>(base); at++) {
    result.digits = true;
    std::uint64_t next;
    if (__builtin_mul_overflow(result.magnitude, static_cast<std::uint64_t>(base), &next) ||
        __builtin_add_overflow(next, digit, &next)) {
      result.overflow = true;
      break;
    }
    result.magnitude = next;
  }
  if (end != nullptr) *end = at;
  return result;
}

void set_status(int *status, int value) {
  if (status != nullptr) *status = value;
}

}  // namespace

const char *str_u64(std::uint64_t value) {
  return in_base(value, 10);
}

const char *str_i64(std::int64_t value) {
  return in_base(value, 10);
}

const char *str_hex64(std::uint64_t value) {
  return in_base(value, 16);
}

const char *str_ptr64(std::uint64_t value) {
  static const char digits[] = "0123456789abcdef";
  char *text = next_text();
  text[0] = '0';
  text[1] = 'x';
  for (int i = 17; i >= 2; i--, value >>= 4) text[i] = digits[value & 15];
  text[18] = '\0';
  return text;
}

std::uint64_t parse_u64(const char *text, const char **end, int base, int *status) {
  scanned_t number = scan(text, end, base);
  if (!number.digits) {
    set_status(status, EINVAL);
    return 0;
  }
  if (number.negative) {
    set_status(status, ERANGE);
    return 0;
  }
  set_status(status, number.overflow ? ERANGE : 0);
  return number.overflow ? std::numeric_limits<std::uint64_t>::max() : number.magnitude;
}

std::int64_t parse_i64(const char *text, const char **end, int base, int *status) {
  constexpr auto highest = std::numeric_limits<std::int64_t>::max();
  constexpr auto lowest = std::numeric_limits<std::int64_t>::min();
  constexpr auto limit = static_cast<std::uint64_t>(highest);
  scanned_t number = scan(text, end, base);
  if (!number.digits) {
    set_status(status, EINVAL);
    return 0;
  }
  if (number.overflow || number.magnitude > limit + (number.negative ? 1 : 0)) {
    set_status(status, ERANGE);
    return number.negative ? lowest : highest;
  }
  set_status(status, 0);
  return static_cast<std::int64_t>(number.negative ? 0 - number.magnitude : number.magnitude);
}

}  // namespace qvr
