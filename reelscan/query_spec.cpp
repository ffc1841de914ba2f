#include "query_spec.h"

#include "field_catalogue.h"
#include "query_list.h"
#include "query_value.h"
#include "spec_reader.h"

namespace qvr {

namespace {

// A constraint up to its value.
struct constraint_head_t {
  std::string_view word;
  bool negated = false;
  bool compared = false;
  bool not_equal = false;
};

// Takes the word and leaves the comparator. A later constraint has at least one character.
constraint_head_t take_head(spec_reader &in, bool first) {
  constraint_head_t head;
  head.word = in.take_until("<=>,", first ? 0 : 1);
  head.compared = !in.at_separator();
  if (head.word.ends_with('!')) {
    head.word.remove_suffix(1);
    head.not_equal = true;
  }
  if (head.word.starts_with('!')) {
    head.negated = true;
    head.word.remove_prefix(1);
  } else if (begins_with_word(head.word, "not")) {
    head.negated = true;
    head.word.remove_prefix(3);
  }
  while (head.negated && head.word.starts_with(' ')) head.word.remove_prefix(1);
  head.word = trim_blanks(head.word);
  return head;
}

comparator_t take_comparator(spec_reader &in, const constraint_head_t &head) {
  char c = in.peek();
  if (head.compared) in.skip();
  bool equal = head.compared && in.take('=');
  in.skip_blanks();
  if (head.not_equal) return {QC_NOT_EQUAL, false};
  if (c == '<') return {QC_UPPER | (equal ? QC_EQUAL : 0u), !equal};
  if (c == '>') return {QC_LOWER | (equal ? QC_EQUAL : 0u), !equal};
  return {QC_EQUAL, false};
}

// A comparator that the field takes; a keyword compared by "=" is a test like any other.
const char *check_comparator(const mr_t &field, comparator_t &comparator) {
  if (field.mr_flags == MR_KEYWORD && comparator.bits == QC_EQUAL) {
    comparator.bits = QC_KEYWORD;
    return nullptr;
  }
  if (field.mr_flags == 0) {
    return spec_error(6101, "constraint `%s' is only valid for reports",
                      {{MSG_ARG_TEXT, field.mr_key}});
  }
  if ((comparator.bits & ~std::uint32_t{field.mr_flags}) != 0) {
    return spec_error(6102, "invalid comparator for query constraint `%s'",
                      {{MSG_ARG_TEXT, field.mr_key}});
  }
  return nullptr;
}

const char *parse_constraint(spec_reader &in, bool first, query_constraints_t &list,
                             name_to_id_t name_to_id) {
  constraint_head_t head = take_head(in, first);
  const mr_t *field = rptdata_find(field_catalogue(), head.word);
  if (field == nullptr) {
    return spec_error(6099, "unknown query constraint: %.*s",
                      {{MSG_ARG_INT, std::to_string(head.word.size())}, {MSG_ARG_TEXT, head.word}});
  }
  query_value_t value;
  if (!head.compared && !head.not_equal) {
    if (field->mr_type != RPT_FLAGS || field->mr_flags != MR_KEYWORD) {
      return spec_error(6100, "need a value for query constraint `%s'",
                        {{MSG_ARG_TEXT, field->mr_key}});
    }
    value.number = head.negated ? 0 : 1;
    return enter_constraint(list, *field, {QC_KEYWORD, false}, std::move(value));
  }
  comparator_t comparator = take_comparator(in, head);
  if (const char *error = check_comparator(*field, comparator)) return error;
  if (!read_query_value(in, *field, comparator, name_to_id, value)) {
    return spec_error(6097, "invalid value specified for `%s'", {{MSG_ARG_TEXT, field->mr_key}});
  }
  return enter_constraint(list, *field, comparator, std::move(value));
}

struct shortcut_row_t {
  char option;
  std::string_view key;
  std::string_view before;
};

// The blank keeps a "=" at the start of the value out of the comparator.
constexpr shortcut_row_t shortcut_rows[] = {
    {'c', "client", "client= "},      {'N', "name", "name= "},        {' ', "volume", "volume= "},
    {'t', "savetime", "savetime>= "}, {'T', "endtime", "endtime<= "},
};

const shortcut_row_t &find_shortcut(char option) {
  for (const shortcut_row_t &row : shortcut_rows) {
    if (row.option == option) return row;
  }
  return shortcut_rows[0];
}

}  // namespace

const char *parse_query_spec(std::string_view text, query_constraints_t &list,
                             name_to_id_t name_to_id) {
  spec_reader in(text);
  in.skip_blanks();
  if (in.rest() == "Bulk Harbor" || in.rest() == "BulkHarbor") in = spec_reader("type=Bulk Harbor");
  for (bool first = true; !in.at_end(); first = false) {
    if (const char *error = parse_constraint(in, first, list, name_to_id)) return error;
    in.skip();
    in.skip_blanks();
  }
  return nullptr;
}

const char *parse_query_shortcut(char option, std::string_view value, query_constraints_t &list,
                                 name_to_id_t name_to_id) {
  constexpr std::size_t longest = 1024;
  const shortcut_row_t &row = find_shortcut(option);
  if (value.size() > longest) {
    return spec_error(6106, "value of `%s' is too long", {{MSG_ARG_TEXT, row.key}});
  }
  spec_reader in(value);
  in.skip_blanks();
  bool quoted = in.peek() == '"' || in.peek() == '\'';
  std::string text(row.before);
  if (value.find(',') != std::string_view::npos && !quoted) {
    text.append(1, '"').append(value).append(1, '"');
  } else {
    text += value;
  }
  return parse_query_spec(text, list, name_to_id);
}

}  // namespace qvr
