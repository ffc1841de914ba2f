// Any value becomes well-formed XML text: UTF-8, nothing special left, and nothing lost.
#include <clocale>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include "text_convert.h"
#include "xml_report.h"

namespace {

std::string unescaped(std::string_view text) {
  struct {
    std::string_view escape;
    char c;
  } rows[] = {
      {"&quot;", '"'}, {"&amp;", '&'}, {"&apos;", '\''}, {"&lt;", '<'}, {"&gt;", '>'},
  };
  std::string plain;
  while (!text.empty()) {
    std::size_t taken = 1;
    char c = text.front();
    for (const auto &row : rows) {
      if (!text.starts_with(row.escape)) continue;
      c = row.c;
      taken = row.escape.size();
    }
    plain += c;
    text.remove_prefix(taken);
  }
  return plain;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
  if (size == 0) return 0;
  static int locale = -1;
  if (locale != data[0] % 2) {
    locale = data[0] % 2;
    std::setlocale(LC_ALL, locale == 0 ? "C" : "C.UTF-8");
  }
  std::string_view value(reinterpret_cast<const char *>(data) + 1, size - 1);
  std::string store;
  std::string_view text = qvr::utf8_made_valid(value, store);
  if (!qvr::utf8_valid(text)) std::abort();
  if (qvr::utf8_valid(value) && text != value) std::abort();
  qvr::row_text row;
  bool any = qvr::xml_escape_value(text, row);
  const std::string escaped(row.text());
  if (any != (escaped != text)) std::abort();
  if (escaped.find_first_of("<>'\"") != std::string::npos) std::abort();
  if (!qvr::utf8_valid(escaped) || unescaped(escaped) != text) std::abort();
  return 0;
}
