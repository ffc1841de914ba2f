// One JSON object (RFC 8259) on one line, written member by member.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace qvr {

// Texts are taken as UTF-8; a byte that is not part of a well-formed character goes out as the
// character U+FFFD, so that a line is valid whatever a peer sent. One thread at a time.
class json_line {
 public:
  json_line &add(std::string_view name, std::string_view value);
  json_line &add(std::string_view name, const char *value) {
    return add(name, std::string_view(value));
  }
  json_line &add(std::string_view name, std::int64_t value) {
    return add_raw(name, std::to_string(value));
  }
  json_line &add(std::string_view name, std::uint64_t value) {
    return add_raw(name, std::to_string(value));
  }
  json_line &add(std::string_view name, std::int32_t value) {
    return add(name, std::int64_t{value});
  }
  json_line &add(std::string_view name, std::uint32_t value) {
    return add(name, std::uint64_t{value});
  }
  json_line &add(std::string_view name, bool value) {
    return add_raw(name, value ? "true" : "false");
  }
  // `value` is JSON already.
  json_line &add_raw(std::string_view name, std::string_view value);

  bool empty() const { return text_.empty(); }
  // The whole object, without a newline.
  std::string text() const { return "{" + text_ + "}"; }

 private:
  std::string text_;
};

// The text as a JSON string with its quotes.
std::string json_quote(std::string_view text);
// A JSON array of what `one` makes of each element.
template <class Range, class Make>
std::string json_array(const Range &range, Make one) {
  std::string text = "[";
  for (const auto &element : range) {
    if (text.size() > 1) text += ',';
    text += one(element);
  }
  return text + "]";
}

}  // namespace qvr
