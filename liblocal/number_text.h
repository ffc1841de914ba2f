// 64-bit numbers to text and back.
#pragma once

#include <cstdint>

namespace qvr {

// The text lies in a ring of 20 buffers of the calling thread: it is valid until 20 more have been
// made there. Nobody frees it.
const char *str_u64(std::uint64_t value);
const char *str_i64(std::int64_t value);
const char *str_hex64(std::uint64_t value);  // lower case, no prefix
const char *str_ptr64(std::uint64_t value);  // 0x and 16 digits

// Reads digits of `base` (2 to 36) behind an optional sign, and 0x with base 16; no blanks are
// skipped. `end` gets the place behind the digits, `status` 0, 22 (no digit) or 34 (out of range);
// either may be null.
// Unsigned: all bits set on overflow; 0 with status 34 for a number with a "-".
std::uint64_t parse_u64(const char *text, const char **end, int base, int *status);
// Signed: the nearest number on overflow, 0 without a digit.
std::int64_t parse_i64(const char *text, const char **end, int base, int *status);

}  // namespace qvr
