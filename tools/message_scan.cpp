#include "message_scan.h"

#include <algorithm>
#include <array>

namespace qvr {

namespace {

using kind = source_token_kind;

// Calls whose first argument is a message id, whatever its size.
constexpr std::array<std::string_view, 6> message_calls = {
    "msg_print", "err_create", "msg_text", "catalog_text", "catalog_lookup", "strtxt_create"};

// Elsewhere a number in this range, with a text behind it, is a message id: below lie counts and
// widths, above lie program numbers.
constexpr std::int64_t ID_LOWEST = 300, ID_HIGHEST = 299999;

bool is_mark(const source_token_t &token, char c) {
  return token.kind == kind::mark && token.text.front() == c;
}

bool opens(const source_token_t &token) {
  return is_mark(token, '(') || is_mark(token, '{') || is_mark(token, '[');
}

bool closes(const source_token_t &token) {
  return is_mark(token, ')') || is_mark(token, '}') || is_mark(token, ']');
}

}  // namespace

void message_scan::learn(const std::vector<source_token_t> &tokens) {
  for (std::size_t i = 0; i + 3 < tokens.size(); i++) {
    if (tokens[i].kind != kind::word || !is_mark(tokens[i + 1], '=')) continue;
    const source_token_t &value = tokens[i + 2], &end = tokens[i + 3];
    bool whole = is_mark(end, ';') || is_mark(end, ',') || is_mark(end, '}');
    if (value.kind == kind::number && value.number >= 0 && whole) {
      named_.emplace(tokens[i].text, value.number);
    }
  }
}

void message_scan::add(const std::string &file, const std::vector<source_token_t> &tokens) {
  for (std::size_t i = 0; i < tokens.size(); i++) {
    if (is_mark(tokens[i], '(') || is_mark(tokens[i], '{')) scan_group(file, tokens, i);
  }
}

message_scan::element_t message_scan::read_element(const source_token_t *first,
                                                   const source_token_t *last) const {
  element_t element;
  if (last - first != 1) return element;
  if (first->kind == kind::number) element.number = first->number;
  if (first->kind == kind::text) element.text = first;
  if (first->kind == kind::word) {
    auto known = named_.find(first->text);
    if (known != named_.end()) element.number = known->second;
    element.named = true;
  }
  return element;
}

std::vector<message_scan::element_t> message_scan::read_group(
    const std::vector<source_token_t> &tokens, std::size_t open) const {
  std::vector<element_t> elements;
  std::size_t depth = 0, start = open + 1;
  for (std::size_t i = start; i < tokens.size(); i++) {
    bool end = closes(tokens[i]) && depth == 0;
    if (opens(tokens[i])) depth++;
    if (closes(tokens[i]) && !end) depth--;
    bool statement = is_mark(tokens[i], ';');
    if (!end && (depth != 0 || (!statement && !is_mark(tokens[i], ',')))) continue;
    elements.push_back(read_element(&tokens[start], &tokens[i]));
    if (statement) elements.push_back({0, nullptr, true});  // no id reaches across
    if (end) break;
    start = i + 1;
  }
  return elements;
}

void message_scan::take(std::int64_t id, const source_token_t &text, const std::string &file) {
  auto &texts = messages_[static_cast<std::int32_t>(id)];
  bool known = std::any_of(texts.begin(), texts.end(),
                           [&](const found_message_t &other) { return other.text == text.text; });
  if (!known) texts.push_back({text.text, file, text.line});
}

void message_scan::scan_call(const std::string &file, const std::vector<element_t> &elements) {
  if (elements.empty() || elements.front().number <= 0) return;
  for (const element_t &element : elements) {
    if (element.text == nullptr) continue;
    take(elements.front().number, *element.text, file);
    return;
  }
}

void message_scan::scan_row(const std::string &file, const std::vector<element_t> &elements) {
  std::int64_t id = 0;
  for (const element_t &element : elements) {
    if (element.text != nullptr && id > 0) {
      take(id, *element.text, file);
      id = 0;
    } else if (element.number == 0) {
      if (!element.named) return;  // an id of 0: a text that is not translated
      id = 0;
    } else if (id == 0 && element.number >= ID_LOWEST && element.number <= ID_HIGHEST) {
      id = element.number;
    }
  }
}

void message_scan::scan_group(const std::string &file, const std::vector<source_token_t> &tokens,
                              std::size_t open) {
  bool message_call = open > 0 && is_mark(tokens[open], '(') &&
                      std::find(message_calls.begin(), message_calls.end(),
                                tokens[open - 1].text) != message_calls.end();
  std::vector<element_t> elements = read_group(tokens, open);
  if (message_call) {
    scan_call(file, elements);
  } else {
    scan_row(file, elements);
  }
}

}  // namespace qvr
