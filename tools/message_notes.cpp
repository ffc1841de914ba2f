#include "message_notes.h"

#include <charconv>

namespace qvr {

namespace {

std::string_view trimmed(std::string_view text) {
  while (!text.empty() && text.front() == ' ') text.remove_prefix(1);
  while (!text.empty() && text.back() == ' ') text.remove_suffix(1);
  return text;
}

// What stands in front of the mark; the mark goes too.
std::string_view cut(std::string_view &text, char mark) {
  std::string_view part = text.substr(0, text.find(mark));
  text.remove_prefix(std::min(part.size() + 1, text.size()));
  return trimmed(part);
}

bool read_number(std::string_view text, std::int32_t &number) {
  auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  return error == std::errc() && end == text.data() + text.size();
}

bool read_ids(std::string_view text, message_note_t &note) {
  while (!text.empty()) {
    std::string_view range = cut(text, ' ');
    if (range.empty()) continue;
    std::int32_t first = 0, last = 0;
    if (!read_number(cut(range, '-'), first)) return false;
    if (range.empty()) last = first;
    if (!range.empty() && !read_number(range, last)) return false;
    note.ids.emplace_back(first, last);
  }
  return !note.ids.empty();
}

}  // namespace

bool read_message_notes(std::string_view text, std::vector<note_section_t> &sections,
                        std::string &why) {
  while (!text.empty()) {
    std::string_view line = cut(text, '\n');
    why = line;
    if (line.empty() || line.front() == ';') continue;
    if (line.front() == '#') {
      sections.push_back({std::string(trimmed(line.substr(1))), {}});
      continue;
    }
    message_note_t note;
    if (sections.empty() || !read_ids(cut(line, '|'), note)) return false;
    note.cause = cut(line, '|');
    note.remedy = cut(line, '|');
    if (note.cause.empty() || !line.empty()) return false;
    sections.back().notes.push_back(std::move(note));
  }
  return true;
}

}  // namespace qvr
