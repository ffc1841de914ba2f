#include <algorithm>
#include <atomic>

#include "attrlist.h"
#include "debug_words.h"
#include "display_width.h"
#include "msg.h"

namespace qvr {

namespace {

constexpr std::string_view NAME_END = ": \"";
constexpr std::string_view VALUE_END = "\"; ";
constexpr std::string_view MORE_VALUES = ", ...";
constexpr std::string_view MASK = "*******";
constexpr std::size_t NAME_CELLS = 28;
constexpr std::size_t VALUE_COLUMN = 30;  // behind the name, a colon and a blank

std::atomic<bool> passwords_masked{false};

bool holds_fold(std::string_view text, std::string_view wanted) {
  for (std::size_t at = 0; at + wanted.size() <= text.size(); at++) {
    if (attr_name_equal(text.substr(at, wanted.size()), wanted)) return true;
  }
  return false;
}

bool needs_quotes(std::string_view value) {
  auto is_blank = [](char c) { return c == ' ' || c == '\t'; };
  return value.empty() || value.find_first_of(":,;\\\n\"#") != std::string_view::npos ||
         is_blank(value.front()) || is_blank(value.back());
}

// A value that is a structured text, rendered for the reader; any other value as it is.
std::string rendered(const std::string &value) {
  strtxt_t message;
  if (strtxt_decode(value, message)) return msg_render(nullptr, message);
  return strtxt_is_xml(value) ? msg_render_xml(nullptr, value) : value;
}

// Cells of the last line of a text.
std::size_t last_line_width(std::string_view text) {
  std::size_t line = text.rfind('\n');
  return i18n_strwidth(line == std::string_view::npos ? text : text.substr(line + 1));
}

// Puts the values of one attribute behind its name.
class value_writer {
 public:
  value_writer(std::string &out, std::size_t width, std::size_t indent)
      : out_(out), width_(width), start_(VALUE_COLUMN + indent), column_(start_) {}

  void write(std::string_view value) {
    if (!first_) separate();
    first_ = false;
    std::string quoted = attr_quote(value, 0);
    std::size_t cells = i18n_strwidth(quoted);
    if (cells + start_ + 2 > width_) return broken(value);
    if (column_ + cells + 2 > width_) {
      out_ += '\n';
      out_.append(start_, ' ');
      column_ = start_;
    }
    out_ += quoted;
    column_ += cells;
  }

 private:
  void separate() {
    out_ += ", ";
    column_ += 2;
  }

  // Too long for any line: from the start of a line, broken at the width.
  void broken(std::string_view value) {
    std::string quoted = attr_quote(value, width_);
    if (quoted.compare(0, 2, "\"\n") != 0) out_ += "\\\n";
    out_ += quoted;
    column_ = last_line_width(quoted);
  }

  std::string &out_;
  std::size_t width_;
  std::size_t start_;
  std::size_t column_;
  bool first_ = true;
};

}  // namespace

bool attr_pack(const attrlist &list, std::string &text) {
  text.clear();
  std::size_t needed = 1;
  for (const attr_t &attr : list) {
    if (attr.values.empty()) continue;
    std::size_t more = attr.values.size() > 1 ? MORE_VALUES.size() : 0;
    needed += attr.name.size() + attr.values.front().size() + more + 6;
  }
  text.reserve(needed);
  for (const attr_t &attr : list) {
    if (attr.values.empty()) continue;
    KS_DEBUG(3, "attr_pack al name: %s.\n", attr.name.c_str());
    KS_DEBUG(3, "attr_pack al val: %s.\n", attr.values.front().c_str());
    text.append(attr.name).append(NAME_END).append(attr.values.front());
    if (attr.values.size() > 1) text.append(MORE_VALUES);
    text.append(VALUE_END);
  }
  if (text.empty()) return false;
  KS_DEBUG(3, "attr_pack str_outp: %s.\n", text.c_str());
  return true;
}

errobj_t *attr_upack(std::string_view text, attrlist &list) {
  if (!list.empty()) {
    return err_create(86781, 15022,
                      "Unable to convert a string into an attribute list: the attribute list "
                      "pointer is incorrect.");
  }
  if (text.empty()) {
    return err_create(86780, 15022,
                      "Unable to convert a string into an attribute list: the string is missing or "
                      "empty.");
  }
  KS_DEBUG(3, "attr_upack str_in: %s.\n", std::string(text).c_str());
  for (;;) {
    std::size_t name_end = text.find(NAME_END);
    if (name_end == std::string_view::npos) return nullptr;
    std::string_view rest = text.substr(name_end + NAME_END.size());
    std::size_t value_end = rest.find(VALUE_END);
    if (value_end == std::string_view::npos) return nullptr;
    std::string_view name = text.substr(0, name_end), value = rest.substr(0, value_end);
    KS_DEBUG(3, "attr_upack al_name: %s.\n", std::string(name).c_str());
    KS_DEBUG(3, "attr_upack val_start: %s.\n", std::string(value).c_str());
    attrlist_set(list, name, value);
    text = rest.substr(value_end + VALUE_END.size());
  }
}

void attr_print(std::string &out, std::size_t width, const attr_t &attr, int indent,
                unsigned flags) {
  std::size_t shift = indent > 0 ? static_cast<std::size_t>(indent) : 0;
  out.append(shift, ' ');
  if ((flags & ATTR_PRINT_COMPACT) == 0) {
    std::size_t cells = i18n_strwidth(attr.name);
    if (cells < NAME_CELLS) out.append(NAME_CELLS - cells, ' ');
  }
  out.append(attr.name).append(": ");
  bool masked =
      (flags & ATTR_PRINT_MASKED) != 0 ||
      (passwords_masked.load(std::memory_order_relaxed) && holds_fold(attr.name, "password"));
  bool messages = (flags & ATTR_PRINT_MESSAGES) != 0 ||
                  ((flags & ATTR_PRINT_RAW) == 0 && attr.name.ends_with("I18N"));
  value_writer writer(out, width, shift);
  for (const std::string &value : attr.values) {
    if (masked) {
      writer.write(MASK);
    } else if (messages) {
      writer.write(rendered(value));
    } else {
      writer.write(value);
    }
  }
  out += ";\n";
}

std::string attr_quote(std::string_view value, std::size_t limit) {
  bool quotes = needs_quotes(value);
  if (value.ends_with('\n')) value.remove_suffix(1);
  std::string text;
  text.reserve(value.size() + 2);
  std::size_t characters = 0;  // on the line so far
  auto put = [&](std::string_view piece, std::size_t count) {
    if (limit != 0 && characters != 0 && characters + count > limit) {
      text += "\\\n";
      characters = 0;
    }
    text += piece;
    characters += count;
  };
  if (quotes) put("\"", 1);
  while (!value.empty()) {
    std::size_t bytes = i18n_char_cells(value).bytes;
    std::string_view next = value.substr(0, bytes);
    value.remove_prefix(bytes);
    if (next == "\n") {
      text += '\n';
      characters = 0;
    } else if (next == "\"" || next == "\\") {
      put(next == "\"" ? "\\\"" : "\\\\", 2);
    } else {
      put(next, 1);
    }
  }
  if (quotes) text += '"';
  return text;
}

void attr_mask_passwords(bool mask) {
  passwords_masked = mask;
}

}  // namespace qvr
