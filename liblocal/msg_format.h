// A message's format meets its arguments.
#pragma once

#include <cstddef>
#include <span>
#include <string>

#include "errobj.h"

namespace qvr {

// Nested messages go this deep, then stand empty.
inline constexpr int MSG_NEST_MAX = 8;

// The type-value pairs of a call, or the stored pairs of a structured text.
struct msg_values_t {
  std::span<const msg_pair_t> pairs;
  std::span<const msg_arg_t> args;
  std::size_t count() const { return pairs.size() + args.size(); }
};

// Formats into `buffer`; the result is cut to capacity - 1 bytes, not inside a character. `locale`
// is that of the nested messages and names; `depth` counts the messages around this one. Positions
// without a value print "null".
std::size_t msg_format(char *buffer, std::size_t capacity, const char *locale, const char *format,
                       const msg_values_t &values, int depth);

// Copies what fits of `text`, not ending inside a character, and a NUL; returns the bytes copied.
std::size_t msg_copy_cut(char *buffer, std::size_t capacity, std::string_view text);

// The argument positions of a format.
std::size_t msg_conversions(std::string_view format);

// The rendered text of a structured text, in the locale; any depth above MSG_NEST_MAX is empty.
std::string msg_render_nested(const char *locale, const strtxt_t &message, int depth);
// The same of an encoded text in either form; one that does not parse is empty.
std::string msg_render_encoded(const char *locale, std::string_view encoded, int depth);
// The text of a value of type MSG_ARG_ATTR: `id:text` is looked up, anything else stands as it is.
// The result lies in the value or in the catalogue.
std::string_view msg_attr_text(const char *locale, std::string_view value);

}  // namespace qvr
