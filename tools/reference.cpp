// reference: writes what is made from the command's tables, so that it cannot differ from them.
//
//   reference page SOURCE OUTPUT                   a manual page; "@words ...@", "@linear@",
//                                                  "@options@", "@exports@", "@levels@" and
//                                                  "@date@" stand for tables
//   reference messages SOURCE NOTES OUTPUT FILE...
//                                                  the page of messages, which the FILEs hold
//   reference bash|zsh OUTPUT                      completion
//
// Exit status 1 when a file cannot be read or written, or a word or message lacks its explanation.
#include <algorithm>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iterator>
#include <span>
#include <sstream>
#include <string>
#include <vector>

#include "completion.h"
#include "message_notes.h"
#include "message_scan.h"
#include "page_tables.h"

namespace {

bool fail(const std::string &why) {
  std::fprintf(stderr, "reference: %s\n", why.c_str());
  return false;
}

bool read_file(const std::string &path, std::string &text) {
  std::ifstream file(path, std::ios::binary);
  if (!file) return fail("cannot read " + path);
  text.assign(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
  return true;
}

bool write_file(const std::string &path, const std::string &text) {
  std::ofstream file(path, std::ios::binary | std::ios::trunc);
  file << text;
  file.close();
  return file ? true : fail("cannot write " + path);
}

bool make_page(const std::string &source, const std::string &output) {
  std::string text, page, why;
  if (!read_file(source, text)) return false;
  if (!qvr::expand_page(text, page, why)) return fail(source + ": " + why);
  return write_file(output, page);
}

bool make_messages(std::span<char *> words) {
  std::string text, notes_text, page, why;
  if (words.size() < 4 || !read_file(words[0], text) || !read_file(words[1], notes_text))
    return false;
  std::vector<qvr::note_section_t> notes;
  if (!qvr::read_message_notes(notes_text, notes, why)) return fail("bad note: " + why);
  qvr::message_scan scan;
  std::vector<std::vector<qvr::source_token_t>> sources;
  for (char *path : words.subspan(3)) {
    std::string source;
    if (!read_file(path, source)) return false;
    sources.push_back(qvr::source_tokens(source));
  }
  for (const auto &source : sources) scan.learn(source);
  for (const auto &source : sources) scan.add("", source);
  if (!qvr::expand_message_page(text, notes, scan, page, why)) return fail(why);
  return write_file(words[2], page);
}

bool run(std::span<char *> words) {
  if (words.empty()) return fail("what?");
  std::string kind = words[0];
  words = words.subspan(1);
  if (kind == "page" && words.size() == 2) return make_page(words[0], words[1]);
  if (kind == "messages") return make_messages(words);
  if (kind == "bash" && words.size() == 1) return write_file(words[0], qvr::bash_completion());
  if (kind == "zsh" && words.size() == 1) return write_file(words[0], qvr::zsh_completion());
  return fail("bad arguments");
}

}  // namespace

int main(int argc, char **argv) {
  return run({argv + 1, static_cast<std::size_t>(argc - 1)}) ? 0 : 1;
}
