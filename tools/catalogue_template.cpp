#include "catalogue_template.h"

namespace qvr {

namespace {

std::string quoted(const std::string &text) {
  std::string out = "\"";
  for (char c : text) {
    switch (c) {
      case '\n':
        out += "\\n";
        break;
      case '\t':
        out += "\\t";
        break;
      case '\r':
        out += "\\r";
        break;
      case '"':
      case '\\':
        out += '\\';
        [[fallthrough]];
      default:
        out += c;
    }
  }
  return out + '"';
}

bool takes_arguments(const std::string &text) {
  std::size_t at = 0;
  while ((at = text.find('%', at)) != std::string::npos) {
    if (at + 1 < text.size() && text[at + 1] != '%') return true;
    at += 2;
  }
  return false;
}

}  // namespace

std::string catalogue_template(const message_scan &scan, const std::string &version) {
  std::string out =
      "$ codeset=UTF-8\n"
      "$ Messages of the reporting command. Translate what stands between the quotes; see\n"
      "$ translating.md.\n"
      "$quote \"\n"
      "$set 1\n"
      "1 \"QVRYOLGMT:vaultlin:\"\n"
      "2 \"QVRSETCOUNT:" +
      std::to_string(CATALOGUE_SET_SIZE) +
      ":\"\n"
      "4 \"$Id: vaultlin " +
      version + " \"\n";
  int set = 1;
  for (const auto &[id, texts] : scan.messages()) {
    int in_set = (id - 1) / CATALOGUE_SET_SIZE + 1;
    if (in_set != set) out += "$set " + std::to_string(in_set) + "\n";
    set = in_set;
    out += "$ " + std::to_string(id) + ", " + texts.front().file +
           (takes_arguments(texts.front().text) ? ", with arguments\n" : "\n");
    for (std::size_t i = 1; i < texts.size(); i++) {
      out += "$ also " + quoted(texts[i].text) + ", " + texts[i].file + "\n";
    }
    out += std::to_string(id - (set - 1) * CATALOGUE_SET_SIZE) + " " + quoted(texts.front().text) +
           "\n";
  }
  return out;
}

}  // namespace qvr
