// The house's formatted print: positional arguments, widths in display cells, arguments from any
// source.
//
// A format is read with the same grammar for every argument source. `%2$s` names a position;
// widths and precisions of strings count display cells, and a string is never cut inside a
// character. A conversion that the class table does not allow the platform to be given (a letter
// that follows a pointer, or one whose value was fetched as something else) prints its own text, so
// that a format from a catalogue or off the wire can do no harm.
#pragma once

#include <array>
#include <cstdarg>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <string_view>

namespace qvr {

// What a conversion fetches, by its letter.
enum fmt_class : std::uint8_t {
  FMT_UNKNOWN = 0,  // fetched as int
  FMT_INT = 1,      // c d h i
  FMT_UINT = 2,     // X o u x
  FMT_LONG = 3,     // l and anything but l or u
  FMT_LLONG = 4,    // ll
  FMT_DOUBLE = 5,   // E G e f g
  FMT_LDOUBLE = 6,  // L
  FMT_TEXT = 7,     // s
  FMT_POINTER = 8,  // p
  FMT_ULONG = 9,    // lu
  FMT_CLASSES = 10
};

// A string value; it need not be terminated. Null data prints "<null>".
struct fmt_text_t {
  const char *data;
  std::size_t size;
};

// The value of one argument: the member that its class names.
union fmt_slot_t {
  int i;             // FMT_UNKNOWN, FMT_INT
  unsigned u;        // FMT_UINT
  long l;            // FMT_LONG
  long long ll;      // FMT_LLONG
  double d;          // FMT_DOUBLE
  long double ld;    // FMT_LDOUBLE
  fmt_text_t s;      // FMT_TEXT
  const void *p;     // FMT_POINTER
  unsigned long ul;  // FMT_ULONG
};
static_assert(sizeof(fmt_slot_t) == 16);

// Where a source stands. A source derives its own cursor from this and casts it back.
struct fmt_cursor_t {};

// Fills the slot with the next argument, as the class of the function's place in the table.
// `locale` is the context of the call: the locale of a message, or null. What a FMT_TEXT slot
// points to must live until the call to the engine has returned.
using fmt_fetch_t = void (*)(fmt_slot_t &slot, fmt_cursor_t &cursor, const char *locale);

// An argument source: one function a class. Called once for each position in rising order.
using fmt_source_t = std::array<fmt_fetch_t, FMT_CLASSES>;

// The source over the arguments of a variadic call; a null string becomes "null".
struct fmt_native_cursor_t : fmt_cursor_t {
  va_list ap;  // the caller starts and ends it
};
extern const fmt_source_t fmt_native_source;

inline constexpr std::size_t FMT_POSITIONS = 256;    // positions must stay below
inline constexpr std::size_t FMT_SPEC_SIZE = 256;    // one rebuilt conversion
inline constexpr std::size_t FMT_GROWTH = 18432;     // above what is needed, when a result grows
inline constexpr std::size_t FMT_ASSUMED_ROOM = 64;  // of a conversion of unknown size
inline constexpr int FMT_WIDTH_MAX = 1 << 20;        // clamp where the room does not set one

// Formats. The mode follows from the arguments:
//   buffer, capacity > 0    bounded: at most capacity - 1 bytes and a NUL
//   buffer, capacity 0      unbounded: no check at all, the caller has sized the buffer
//   null, capacity > 0      `*allocated` gets capacity bytes; bounded
//   null, 0                 `*allocated` gets what is needed
//   null and no `allocated` nothing happens, 0
// In bounded mode a conversion that has less than its room left (the larger of width and precision;
// 64 bytes when it has neither; a string at least its bytes) ends the text in front of it.
// Returns the length of the result. A failure (more than 255 positions, a conversion of more than
// 255 bytes) returns 0 and leaves an empty `*allocated` or an empty text; diagnostics stand
// at debug level 6. Any thread; keeps no state.
std::size_t i18n_vsnprintf(char *buffer, std::size_t capacity, std::unique_ptr<char[]> *allocated,
                           const fmt_source_t &source, const char *locale, std::string_view format,
                           fmt_cursor_t &cursor);

// The number of argument positions of a format: the highest position that it names.
std::size_t i18n_arg_count(std::string_view format);

// Bounded (capacity > 0) or unbounded (0) print of the call's own arguments. Mind the room of 64
// bytes that "%d" or "%s" without a width asks of a bounded buffer.
std::size_t i18n_snprintf(char *buffer, std::size_t capacity, const char *format, ...)
    __attribute__((format(printf, 3, 4)));

// Formats into `*text`, which grows as needed and owns the result.
std::size_t i18n_asprintf(std::unique_ptr<char[]> *text, const char *format, ...)
    __attribute__((format(printf, 2, 3)));

// Formats, converts to the locale's code set unless the stream's descriptor is exempt (see
// text_convert.h), and writes. Returns the number of bytes written.
std::size_t fmt_to_file(std::FILE *stream, const char *format, ...)
    __attribute__((format(printf, 2, 3)));
std::size_t fmt_vto_file(std::FILE *stream, const char *format, va_list args)
    __attribute__((format(printf, 2, 0)));
std::size_t fmt_to_stdout(const char *format, ...) __attribute__((format(printf, 1, 2)));

}  // namespace qvr
