// The format that a message is printed with.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace qvr {

// The catalogue's format for a message with so many values, or the English one where the catalogue
// has none or one that does not fit. Lives as long as `english` and the catalogue.
const char *msg_translated_format(std::int32_t id, const char *locale, const char *english,
                                  std::size_t values);

// False for a format that asks for more values than there are, for a number where the English shows
// a text, or for what is no conversion.
bool msg_translation_fits(std::string_view translated, std::string_view english,
                          std::size_t values);

}  // namespace qvr
