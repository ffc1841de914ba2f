// Major status values of the mechanism (RFC 2744: routine errors in bits 16 to 23), its flags, and
// its failures that are programming errors.
#pragma once

#include <cstdint>

#include "debug_words.h"
#include "errobj.h"

namespace qvr {

enum gss_major : std::uint32_t {
  GSS_COMPLETE = 0,
  GSS_CONTINUE_NEEDED = 1,
  GSS_BAD_SIGNATURE = 0x60000,
  GSS_DEFECTIVE_CREDENTIAL = 0x90000,
  GSS_FAILURE = 0xD0000,
};

inline constexpr std::uint32_t GSS_FLAG_MUTUAL = 2;
// The peer answers nothing: whoever initiates does not read a reply.
inline constexpr std::uint32_t GSS_FLAG_NO_REPLY = 0x80000000;
// The lifetime of a context that does not end by itself, in seconds.
inline constexpr std::uint32_t GSS_LIFETIME_FOREVER = 0x7fffffff;

// Code of the mechanism's own failures.
inline constexpr std::int32_t GSS_FAILED_CODE = 25007;

inline errobj_t *gss_unexpected(const char *file, int line, const char *text) {
  unexpected_error(file, line, text);
  return err_create(0, GSS_FAILED_CODE, "%s", {{MSG_ARG_TEXT, text}});
}

}  // namespace qvr

// Tells a programming error at this place and gives its error object.
#define GSS_UNEXPECTED(text) ::qvr::gss_unexpected(__FILE__, __LINE__, text)
