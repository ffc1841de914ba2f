#include "page_tables.h"

#include <algorithm>
#include <array>
#include <map>
#include <set>
#include <span>

#include "field_catalogue.h"
#include "field_meanings.h"
#include "field_rows.h"
#include "options.h"
#include "page_text.h"
#include "query_spec.h"
#include "ss_levels.h"

namespace qvr {

namespace {

constexpr std::array<std::string_view, 12> type_names = {
    "",     "text",  "signed", "count",  "bytes", "kilobytes",
    "time", "flags", "level",  "number", "id",    "duration"};

struct comparators_t {
  std::uint16_t flags;
  const char *text;
};
constexpr comparators_t comparator_texts[] = {
    {catalogue_rows::EQUAL, "Cm ="},
    {catalogue_rows::RANGE, "Cm = < <= > >="},
    {catalogue_rows::LIST, "Cm = No list"},
    {catalogue_rows::MIXED, "Cm = != No list"},
};

enum word_kind { WORD_FIELD, WORD_REPORT, WORD_TRUTH, WORD_HISTORY };

word_kind kind_of(const mr_t &field) {
  if (history_field(field.mr_key) == field_place::history_alone) return WORD_HISTORY;
  if (field.mr_flags == catalogue_rows::KEYWORD) return WORD_TRUTH;
  return field.mr_flags == catalogue_rows::REPORT ? WORD_REPORT : WORD_FIELD;
}

std::string_view meaning_of(std::span<const meaning_t> meanings, std::string_view key) {
  for (const meaning_t &meaning : meanings) {
    if (meaning.key == key) return meaning.text;
  }
  return {};
}

// Text lines of at most 79 bytes, a new one for each sentence, as the page language wants it.
std::string wrapped(std::string_view text) {
  constexpr std::size_t room = 79;
  std::string out;
  std::size_t column = 0;
  while (!text.empty()) {
    std::string_view word = text.substr(0, text.find(' '));
    text.remove_prefix(std::min(word.size() + 1, text.size()));
    if (word.empty()) continue;
    bool sentence_ended = column > 0 && (out.back() == '.' || out.back() == '?');
    if (column > 0 && (sentence_ended || column + 1 + word.size() > room)) {
      out += '\n';
      column = 0;
    }
    if (column == 0 && (word[0] == '.' || word[0] == '\'')) out += "\\&";
    if (column > 0) out += ' ';
    out += word;
    column += word.size() + 1;
  }
  return out;
}

// The macro for a word in "`'": a manual page, a section or a word of the language.
std::string reference_to(std::string_view word) {
  if (word == "reelscan") return ".Xr reelscan 8";
  if (word == "reelscan-query") return ".Xr reelscan-query 7";
  bool section = word[0] >= 'A' && word[0] <= 'Y' && word[1] >= 'A' && word[1] <= 'Z';
  return (section ? ".Sx " : ".Cm ") + std::string(word);
}

// A sentence with "`word'" marked as a word of the language.
std::string sentence(std::string_view text) {
  std::string out;
  for (std::size_t at = 0; at < text.size();) {
    std::size_t open = std::min(text.find('`', at), text.size());
    out += wrapped(page_text(text.substr(at, open - at)));
    if (open == text.size()) break;
    std::size_t close = text.find('\'', open);
    std::string_view behind = text.substr(close + 1);
    std::size_t marks = std::min(behind.find_first_not_of(".,;"), behind.size());
    if (!out.empty() && out.back() != '\n') out += '\n';
    out += reference_to(text.substr(open + 1, close - open - 1));
    for (char mark : behind.substr(0, marks)) (out += ' ') += mark;
    out += '\n';
    at = close + 1 + marks;
  }
  if (!out.empty() && out.back() == '\n') out.pop_back();
  return out;
}

std::string word_item(const mr_t &field, std::string_view meaning) {
  std::string out = ".It Cm " + page_text(field.mr_key) + "\n.Pq ";
  std::string type(type_names[field.mr_type]);
  if (field.mr_flags == catalogue_rows::KEYWORD) {
    out += type;
  } else {
    out += type + ", width " + std::to_string(field.mr_width);
    for (const comparators_t &row : comparator_texts) {
      if (row.flags == field.mr_flags) out += " , " + std::string(row.text);
    }
    if (!field.has_short) out += " , queries alone";
    if (field.mr_flags == catalogue_rows::REPORT) out += " , reports alone";
    bool renamed = field.has_short && field.mr_longname != field.mr_key;
    if (renamed && kind_of(field) != WORD_HISTORY)
      out += " , in exports Li " + page_text(field.mr_longname);
  }
  return out + "\n" + sentence(meaning) + "\n";
}

bool add_words(word_kind kind, std::string &page, std::string &why) {
  std::map<std::string_view, const mr_t *> sorted;
  for (const mr_t &field : field_catalogue()) sorted.emplace(field.mr_key, &field);
  page += ".Bl -tag -width Ds\n";
  for (const auto &[key, field] : sorted) {
    std::string_view meaning = meaning_of(field_meanings, key);
    if (meaning.empty()) return why = "no meaning of " + std::string(key), false;
    if (kind_of(*field) == kind) page += word_item(*field, meaning);
  }
  page += ".El\n";
  return true;
}

bool add_linear(std::string &page, std::string &why) {
  page +=
      ".Bl -column \"fullfiles/incremental\" \"percent-full-files-per-incremental\" "
      "\"kilobytes\"\n";
  page += ".It Em word Ta Em \"name in exports\" Ta Em type Ta Em meaning\n";
  for (const mr_t &field : linear_catalogue()) {
    std::string_view meaning = meaning_of(linear_meanings, field.mr_key);
    if (meaning.empty()) return why = "no meaning of " + std::string(field.mr_key), false;
    page += ".It Li " + std::string(field.mr_key) + " Ta " + page_text(field.mr_longname) + " Ta " +
            std::string(type_names[field.mr_type]) + " Ta " + page_argument(meaning) + "\n";
  }
  page += ".El\n";
  return true;
}

void add_levels(std::string &page) {
  page += ".Bl -column \"incr_synth_full\" \"number\"\n.It Em name Ta Em number\n";
  for (std::int32_t level = LEVEL_EXEC; level <= LEVEL_TXNLOG; level++) {
    std::string name(level_report_name(level));
    bool asked = level == LEVEL_MANUAL || (level_parse(name) == level && level != LEVEL_SKIP);
    if (asked) page += ".It Cm " + name + " Ta " + page_text(std::to_string(level)) + "\n";
  }
  page += ".El\n";
}

bool add_table(std::string_view name, std::string &page, std::string &why) {
  if (name == "@words@") return add_words(WORD_FIELD, page, why);
  if (name == "@report words@") return add_words(WORD_REPORT, page, why);
  if (name == "@truth words@") return add_words(WORD_TRUTH, page, why);
  if (name == "@history words@") return add_words(WORD_HISTORY, page, why);
  if (name == "@linear@") return add_linear(page, why);
  if (name == "@levels@") return add_levels(page), true;
  why = "unknown table " + std::string(name);
  return false;
}

template <class Take>
bool each_line(std::string_view text, Take take) {
  while (!text.empty()) {
    std::string_view line = text.substr(0, text.find('\n'));
    text.remove_prefix(std::min(line.size() + 1, text.size()));
    if (!take(line)) return false;
  }
  return true;
}

// The ids of titles, long names and narrow titles: they are no messages.
std::set<std::int32_t> title_ids() {
  std::set<std::int32_t> ids;
  auto add = [&ids](const catalogue_rows::texts_t &texts) {
    for (const auto &text : {texts.title, texts.longname, texts.narrow}) ids.insert(text.id);
  };
  for (const auto &row : catalogue_rows::field_rows) add(row.texts);
  for (const auto &row : catalogue_rows::linear_rows) add(row.texts);
  return ids;
}

class message_page {
 public:
  message_page(const message_scan &scan, std::string &page) : scan_(scan), page_(page) {}

  void add(const std::vector<note_section_t> &sections) {
    for (const note_section_t &section : sections) {
      page_ += ".Ss " + section.title + "\n.Bl -tag -width Ds\n";
      for (const message_note_t &note : section.notes) add_note(note);
      page_ += ".El\n";
    }
  }

  // What is missing; empty when all messages have a note.
  std::string missing() const {
    std::string text = trouble_;
    const std::set<std::int32_t> titles = title_ids();
    for (const auto &[id, texts] : scan_.messages()) {
      bool told = told_.contains(id) || titles.contains(id) || texts.front().text.empty();
      if (!told) text += "no note of " + std::to_string(id) + " " + texts.front().text + "\n";
    }
    return text;
  }

 private:
  void add_note(const message_note_t &note) {
    for (auto [first, last] : note.ids) {
      auto at = scan_.messages().lower_bound(first);
      if (at == scan_.messages().end() || at->first > last)
        trouble_ += "no message " + std::to_string(first) + "\n";
      for (; at != scan_.messages().end() && at->first <= last; ++at)
        add_item(at->first, at->second);
    }
    page_ += sentence(note.cause) + "\n";
    if (!note.remedy.empty()) page_ += ".Em Remedy :\n" + sentence(note.remedy) + "\n";
  }

  void add_item(std::int32_t id, const std::vector<found_message_t> &texts) {
    if (!told_.insert(id).second) trouble_ += "two notes of " + std::to_string(id) + "\n";
    for (const found_message_t &found : texts) {
      std::string text = found.text;
      while (!text.empty() && text.back() == '\n') text.pop_back();
      while (!text.empty() && text.front() == '\n') text.erase(0, 1);
      if (!text.empty()) page_ += ".It " + page_argument(std::to_string(id) + "  " + text) + "\n";
    }
  }

  const message_scan &scan_;
  std::string &page_;
  std::string trouble_;
  std::set<std::int32_t> told_;
};

}  // namespace

bool expand_page(std::string_view source, std::string &page, std::string &why) {
  return each_line(source, [&](std::string_view line) {
    if (line.starts_with('@')) return add_table(line, page, why);
    (page += line) += '\n';
    return true;
  });
}

bool expand_message_page(std::string_view source, const std::vector<note_section_t> &notes,
                         const message_scan &scan, std::string &page, std::string &why) {
  message_page items(scan, page);
  each_line(source, [&](std::string_view line) {
    if (line == "@messages@")
      items.add(notes);
    else
      (page += line) += '\n';
    return true;
  });
  why = items.missing();
  return why.empty();
}

}  // namespace qvr
