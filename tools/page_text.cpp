#include "page_text.h"

namespace qvr {

std::string page_text(std::string_view text) {
  std::string out;
  for (char c : text) {
    switch (c) {
      case '\\':
        out += "\\e";
        break;
      case '\n':
        out += "\\en";
        break;
      case '\'':
        out += "\\(aq";
        break;
      case '`':
        out += "\\(ga";
        break;
      case '-':
        out += "\\-";
        break;
      default:
        out += c;
    }
  }
  return out;
}

std::string page_argument(std::string_view text) {
  std::string out = "\"";
  for (char c : page_text(text)) {
    if (c == '"') out += '"';
    out += c;
  }
  return out + '"';
}

}  // namespace qvr
