// The XML form of structured texts.
#include <charconv>

#include "msg.h"
#include "msg_rings.h"

namespace qvr {

namespace {

struct entity_t {
  char plain;
  std::string_view entity;
};

constexpr entity_t entities[] = {
    {'&', "&amp;"}, {'"', "&quot;"}, {'\'', "&apos;"}, {'<', "&lt;"}, {'>', "&gt;"},
};

void append_escaped(std::string &out, std::string_view text) {
  for (char c : text) {
    std::string_view shown(&c, 1);
    for (const entity_t &row : entities) {
      if (row.plain == c) shown = row.entity;
    }
    out += shown;
  }
}

std::string unescaped(std::string_view text) {
  std::string out;
  out.reserve(text.size());
  while (!text.empty()) {
    char c = text.front();
    std::size_t used = 1;
    if (c == '&') {
      for (const entity_t &row : entities) {
        if (!text.starts_with(row.entity)) continue;
        c = row.plain;
        used = row.entity.size();
        break;
      }
    }
    out += c;
    text.remove_prefix(used);
  }
  return out;
}

// Finds `opening`, takes what stands up to the next quote and consumes through that quote.
bool take_quoted(std::string_view &text, std::string_view opening, std::string_view &value) {
  std::size_t at = text.find(opening);
  if (at == std::string_view::npos) return false;
  text.remove_prefix(at + opening.size());
  std::size_t end = text.find('"');
  if (end == std::string_view::npos) return false;
  value = text.substr(0, end);
  text.remove_prefix(end + 1);
  return true;
}

template <class Number>
bool take_quoted_number(std::string_view &text, std::string_view opening, Number &number) {
  std::string_view value;
  if (!take_quoted(text, opening, value)) return false;
  auto [end, error] = std::from_chars(value.data(), value.data() + value.size(), number);
  return error == std::errc() && end == value.data() + value.size();
}

}  // namespace

std::string strtxt_to_xml(const strtxt_t &message) {
  std::string out = "<MSG id=\"" + std::to_string(message.id) + "\" form=\"";
  append_escaped(out, message.format);
  out += "\" argcount=\"" + std::to_string(message.args.size()) + "\"> ";
  if (!message.args.empty()) {
    out += " <MSGARGS> ";
    for (const msg_arg_t &arg : message.args) {
      out += " <MSGARG arg=\"";
      append_escaped(out, arg.text);
      out += "\" argdesc=\"" + std::to_string(arg.type) + "\"/> ";
    }
    out += " </MSGARGS> ";
  }
  out += "</MSG>";
  return out;
}

bool strtxt_is_xml(std::string_view text) {
  return text.find("<MSG") != std::string_view::npos &&
         text.find("</MSG>") != std::string_view::npos;
}

bool strtxt_take_xml(std::string_view &text, strtxt_t &out) {
  constexpr std::string_view opening = "<MSG ", closing = "</MSG>";
  std::size_t begin = text.find(opening);
  if (begin == std::string_view::npos) return false;
  std::string_view rest = text.substr(begin + opening.size());
  std::size_t end = rest.find(closing);
  std::string_view body = rest.substr(0, end);
  strtxt_t message;
  std::string_view value;
  std::size_t count = 0;
  if (!take_quoted_number(body, "id=\"", message.id)) return false;
  if (!take_quoted(body, "form=\"", value)) return false;
  message.format = unescaped(value);
  if (!take_quoted_number(body, "argcount=\"", count)) return false;
  for (std::size_t i = 0; i < count; i++) {
    msg_arg_t arg;
    if (!take_quoted(body, "<MSGARG arg=\"", value)) return false;
    arg.text = unescaped(value);
    if (!take_quoted_number(body, "argdesc=\"", arg.type)) return false;
    message.args.push_back(std::move(arg));
  }
  out = std::move(message);
  text = end == std::string_view::npos ? std::string_view() : rest.substr(end + closing.size());
  return true;
}

strtxt_t *strtxt_from_xml(std::string_view text) {
  strtxt_t message;
  if (!strtxt_take_xml(text, message)) return nullptr;
  strtxt_t *slot = msg_next_strtxt();
  *slot = std::move(message);
  return slot;
}

}  // namespace qvr
