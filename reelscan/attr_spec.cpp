#include "attr_spec.h"

#include <string>

#include "msg.h"
#include "spec_reader.h"

namespace qvr {

namespace {

// Cuts the marks of negation off the word.
bool take_negation(std::string_view &word, bool compared) {
  bool negated = false;
  if (compared && word.ends_with('!')) {
    word.remove_suffix(1);
    negated = true;
  }
  std::size_t prefix = word.starts_with('!') ? 1 : begins_with_word(word, "not ") ? 4 : 0;
  if (prefix == 0) return negated;
  word.remove_prefix(prefix);
  while (word.starts_with(' ')) word.remove_prefix(1);
  return true;
}

const char *parse_term(spec_reader &in, attrlist &list) {
  std::string_view word = in.take_until("<=>,");
  bool compared = !in.at_separator();
  if (compared && in.peek() != '=') {
    return spec_error(144304, "Operator '%c' is not valid for attribute constraints.",
                      {{MSG_ARG_CHAR, std::string(1, in.peek())}});
  }
  bool negated = take_negation(word, compared);
  word = trim_blanks(word).substr(0, ATTR_NAME_MAX);
  if (word.empty()) {
    return spec_error(144305, "Attribute constraints must specify an attribute name.", {});
  }
  std::string name = negated ? "!" + std::string(word) : std::string(word);
  if (!compared) {
    attrlist_add(list, name);
    return nullptr;
  }
  in.skip();
  in.take('=');
  in.skip_blanks();
  std::string value;
  if (!in.take_text(value)) {
    return spec_error(144306, "invalid value for attribute constraint '%s'",
                      {{MSG_ARG_TEXT, name}});
  }
  attrlist_add(list, name, value);
  return nullptr;
}

}  // namespace

const char *parse_attr_spec(std::string_view text, attrlist &list) {
  if (text.data() == nullptr) return nullptr;
  spec_reader in(text);
  in.skip_blanks();
  do {
    if (const char *error = parse_term(in, list)) return error;
    while (in.peek() == ',' || in.peek() == ' ') in.skip();
  } while (!in.at_end());
  return nullptr;
}

}  // namespace qvr
