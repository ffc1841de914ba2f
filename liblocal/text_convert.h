// Text inside the house is UTF-8; here it meets the code set of the locale.
#pragma once

#include <cstddef>
#include <cstdio>
#include <string>
#include <string_view>

namespace qvr {

// The code set of the current locale under the name that iconv is given. "646" and
// "ANSI_X3.4-1968" count as ISO8859-1.
const char *locale_codeset();
bool locale_is_utf8();

bool text_is_ascii(std::string_view text);

// UTF-8 to the locale's code set. The result is `text` itself when nothing has to change, else it
// lies in `store`. What the code set cannot show, and bytes that are no UTF-8, become "?". A code
// set that iconv does not know ends the program with a line on descriptor 2. Any thread.
std::string_view text_to_locale(std::string_view text, std::string &store);
// The locale's code set to UTF-8, for texts that the system library made in the locale.
std::string_view text_from_locale(std::string_view text, std::string &store);

// The same for the bytes that name something outside, such as a path or a variable's value: what
// does not convert as a whole comes back as it is, and in the "C" locale, which says nothing of
// bytes above 127, everything does.
std::string name_to_locale(std::string_view name);
std::string name_from_locale(std::string_view name);

// Well-formed UTF-8 (RFC 3629).
bool utf8_valid(std::string_view text);
// The text itself when it is well-formed UTF-8, else its conversion in `store`, which is always
// well-formed: from the locale's code set, or from ISO8859-1 where the locale says UTF-8.
std::string_view utf8_made_valid(std::string_view text, std::string &store);

// Descriptors whose streams get their text unconverted; at most ten. False when there is no room.
// With QVR_CATCH_CHILD_STDOUT set the list turns round: only these are converted. Process-wide.
bool text_exempt_fd(int fd);
void text_unexempt_fd(int fd);
bool text_converts_fd(int fd);

// Writes a text, converted if the stream's descriptor asks for it, in one call per stream. Returns
// the number of bytes written.
std::size_t text_to_file(std::FILE *stream, std::string_view text);

}  // namespace qvr
