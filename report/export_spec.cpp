#include "export_spec.h"

namespace qvr {

namespace {

// The character that a backslash and `c` stand for, or NUL.
constexpr char escaped(char c) {
  constexpr char rows[][2] = {{'\\', '\\'}, {'b', '\b'}, {'f', '\f'}, {'n', '\n'},
                              {'r', '\r'},  {'t', '\t'}, {'v', '\v'}};
  for (const auto &row : rows) {
    if (row[0] == c) return row[1];
  }
  return '\0';
}

}  // namespace

int rpt_check_spec(std::string_view argument, std::string &spec) {
  spec.clear();
  for (std::size_t at = 1; at < argument.size(); at++) {
    char c = argument[at];
    bool last = at + 1 == argument.size();
    if (c == '%') {
      spec += c;
      if (last) break;
      char next = argument[++at];
      if (next != '%' && next != 's') return static_cast<int>(at);
      spec += next;
    } else if (c == '\\') {
      if (last) break;
      if (char stands_for = escaped(argument[at + 1])) {
        spec += stands_for;
        at++;
      } else {
        spec += c;
      }
    } else {
      spec += c;
    }
  }
  return -1;
}

std::uint32_t rpt_split_printf(std::string_view spec, std::vector<std::string> &pieces) {
  pieces.clear();
  std::uint32_t conversions = 0;
  std::string piece;
  for (std::size_t at = 0; at < spec.size(); at++) {
    piece += spec[at];
    if (spec[at] != '%' || at + 1 == spec.size()) continue;
    piece += spec[++at];
    if (spec[at] == '%') continue;
    conversions++;
    pieces.push_back(std::move(piece));
    piece.clear();
  }
  if (!piece.empty()) pieces.push_back(std::move(piece));
  return conversions;
}

}  // namespace qvr
