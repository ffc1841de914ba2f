// Messages: every text that a person sees goes through here with its id, code, flags and English
// format; it is translated when it is printed.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "errobj.h"

namespace qvr {

enum msg_flag : std::uint32_t {
  MSG_STDOUT = 1,
  MSG_STDERR = 2,
  MSG_RAW_LOG = 8,
  MSG_LOG_PATH = 16,
  MSG_EVENT = 32,
  MSG_RAW_LOG_TOO = 64,
  MSG_NO_PREFIX = 128,
  MSG_RAW_INSTEAD = 256,
  MSG_EVENT_TOO = 512,
};

// Prints a message in the process's language, with standard output flushed before anything goes to
// standard error. A code of 5 or less is a bare severity. `format` is in English; the catalogue's
// text of `id` stands in for it, and id 0 is never translated and never shown. On standard error
// the line reads "id:program: text" unless MSG_NO_PREFIX is set. Any thread; a null format does
// nothing; errno is kept.
void msg_print(std::int32_t id, std::int32_t code, std::uint32_t flags, const char *format,
               msg_pairs args = {});
// Delivers an error object as the flags say, with a newline behind a message with an id. Null does
// nothing. Any thread.
void msg_deliver(const errobj_t *error, std::uint32_t flags);

// Texts in rings of the calling thread; nobody frees them. The rendered ones stay valid for the
// thread's next 49, the small ones for its next 199 results of their ring; longer texts are cut. A
// null locale is the process's.
// Rendered, up to 18431 bytes; null for a null format:
const char *msg_text(std::int32_t id, const char *locale, const char *format, msg_pairs args = {});
const char *msg_render(const char *locale, const strtxt_t &message);
// Small, up to 3071 bytes:
const char *catalog_text(std::int32_t id, const char *default_text);
const char *msg_arg_int(int value);
const char *msg_arg_long(long value);
const char *msg_arg_ulong(unsigned long value);
const char *msg_arg_uint(unsigned value);
const char *msg_arg_char(char value);

// The catalogue's text (catgets, POSIX), in a ring of 200 that all threads share, up to 6143 bytes;
// `default_text` itself when the catalogue has none. errno is kept.
const char *catalog_lookup(std::int32_t id, const char *locale, const char *default_text);

// The encoded form, in which a structured text crosses the wire and lies in logs.
// Makes one in the thread's pool of 32 slots (64 or 128 by MSG_STRUCTURED_TEXT_POOL_SIZE), valid
// until the pool comes round; null for a null format. It owns copies of the values.
strtxt_t *strtxt_create(std::int32_t id, const char *format, msg_pairs args = {});
// "id length format", then " argc" and " type length value" for each argument; lengths in bytes.
std::string strtxt_encode(const strtxt_t &message);
// The same with each value cut at 2047 bytes, for readers of fixed room.
std::string strtxt_encode_cut(const strtxt_t &message);
// Into a buffer of `size` bytes, terminated; a text that does not fit is replaced by one that says
// "stbuf overflow, msgID:%d". Returns the length.
std::size_t strtxt_encode_to(const strtxt_t &message, char *buffer, std::size_t size);
// A plain text as a message without id or arguments, cut at 2047 bytes; an `id:text` as a message
// with that id.
std::string strtxt_encode_text(std::string_view text);
std::string strtxt_encode_entry(std::string_view entry);
// False, and `out` untouched, for anything that is not wholly of the encoded form. Formats and
// values may be of 24576 bytes.
bool strtxt_decode(std::string_view text, strtxt_t &out);

std::string strtxt_to_xml(const strtxt_t &message);
// The first message of the text, in the thread's pool; null when a part is missing.
strtxt_t *strtxt_from_xml(std::string_view text);
// Reads the next message and consumes it from `text`. False when a part is missing.
bool strtxt_take_xml(std::string_view &text, strtxt_t &out);
bool strtxt_is_xml(std::string_view text);
// The rendered texts of all messages in an XML text, in reverse order, joined by ", ", in the large
// ring; the empty text when one does not parse.
const char *msg_render_xml(const char *locale, std::string_view text);

}  // namespace qvr
