#include "query_list.h"

#include <algorithm>

namespace qvr {

namespace {

constexpr std::size_t SSATTR_MAX = 16;
constexpr std::int16_t LAST_UNSORTED_CODE = 49;
constexpr std::uint16_t LIST_FIELD = MR_EQUAL | MR_LIST;
constexpr std::uint16_t MIXED_FIELD = MR_EQUAL | MR_MIXED;

const char *more_than_once(const mr_t &field) {
  return spec_error(6104, "query constraint `%s' specified more than once",
                    {{MSG_ARG_TEXT, field.mr_key}});
}

query_constraint_t *find_node(query_constraints_t &list, std::int16_t code) {
  for (query_constraint_t &node : list) {
    if (node.qc_mr->mr_id == code) return &node;
  }
  return nullptr;
}

// The codes that the server can select on stand in front, highest first.
void insert_node(query_constraints_t &list, query_constraint_t &&node) {
  std::int16_t code = node.qc_mr->mr_id;
  auto at = list.end();
  if (code > LAST_UNSORTED_CODE) {
    at = std::find_if(list.begin(), list.end(), [code](const query_constraint_t &other) {
      return other.qc_mr->mr_id < code;
    });
  }
  list.insert(at, std::move(node));
}

// The keywords that test an attribute of the save set and not a flag.
bool tests_attribute(const mr_t &field) {
  static constexpr std::string_view words[] = {"dedupe", "Zirrel", "rehydrated", "syntheticfull",
                                               "deviceless"};
  return std::find(std::begin(words), std::end(words), field.mr_key) != std::end(words);
}

void set_keyword(query_constraint_t &node, const mr_t &field, bool wanted) {
  if (tests_attribute(field)) {
    node.qc_hi = wanted ? 1 : 0;
    return;
  }
  node.qc_lo |= field.mr_width;
  if (wanted) node.qc_hi |= field.mr_width;
}

void set_number(query_constraint_t &node, std::uint32_t bits, std::uint64_t number) {
  ((bits & QC_UPPER) != 0 ? node.qc_hi : node.qc_lo) = number;
}

void add_first(query_constraints_t &list, const mr_t &field, std::uint32_t bits,
               query_value_t &&value) {
  query_constraint_t node;
  node.qc_mr = &field;
  node.qc_cmp = bits;
  node.qc_eqbits = bits == QC_EQUAL ? 1 : 0;
  if (bits == QC_KEYWORD) {
    set_keyword(node, field, value.number != 0);
  } else if (query_type_is_text(field.mr_type)) {
    node.values.push_back(std::move(value.text));
  } else {
    set_number(node, bits, value.number);
  }
  insert_node(list, std::move(node));
}

const char *add_to_mixed(query_constraint_t &node, std::uint32_t bits, query_value_t &&value) {
  if (node.values.size() >= SSATTR_MAX) {
    return spec_error(124885, "too many ssattributes specified (> 16)", {});
  }
  if (bits == QC_EQUAL) {
    node.qc_eqbits = static_cast<std::uint16_t>(node.qc_eqbits | 1u << node.values.size());
  }
  node.qc_cmp = QC_MIXED;
  node.values.push_back(std::move(value.text));
  return nullptr;
}

const char *add_keyword(query_constraint_t &node, const mr_t &field, query_value_t &&value) {
  if (tests_attribute(field) || (node.qc_lo & field.mr_width) != 0) return more_than_once(field);
  set_keyword(node, field, value.number != 0);
  return nullptr;
}

const char *add_bound(query_constraint_t &node, const mr_t &field, std::uint32_t bits,
                      query_value_t &&value) {
  constexpr std::uint32_t ends = QC_UPPER | QC_LOWER;
  if ((bits & ends) == 0 || (node.qc_cmp & ends) == 0 || (bits & node.qc_cmp & ends) != 0) {
    return more_than_once(field);
  }
  std::uint64_t low = (bits & QC_UPPER) != 0 ? node.qc_lo : value.number;
  std::uint64_t high = (bits & QC_UPPER) != 0 ? value.number : node.qc_hi;
  bool crossed = query_type_is_signed(field.mr_type)
                     ? static_cast<std::int64_t>(low) > static_cast<std::int64_t>(high)
                     : low > high;
  if (crossed) {
    return spec_error(6098, "non-overlapping range specified for `%s'",
                      {{MSG_ARG_TEXT, field.mr_key}});
  }
  node.qc_cmp |= bits | QC_RANGE;
  set_number(node, bits, value.number);
  return nullptr;
}

}  // namespace

const char *enter_constraint(query_constraints_t &list, const mr_t &field, comparator_t comparator,
                             query_value_t &&value) {
  std::uint32_t bits = comparator.bits;
  if ((bits & (QC_UPPER | QC_LOWER)) != 0) bits |= QC_EQUAL;
  query_constraint_t *node = find_node(list, field.mr_id);
  if (node == nullptr) {
    add_first(list, field, bits, std::move(value));
    return nullptr;
  }
  if (field.mr_flags == MIXED_FIELD) return add_to_mixed(*node, bits, std::move(value));
  if (field.mr_flags == LIST_FIELD) {
    node->qc_cmp = QC_LIST;
    node->values.push_back(std::move(value.text));
    return nullptr;
  }
  if (bits == QC_KEYWORD) return add_keyword(*node, field, std::move(value));
  return add_bound(*node, field, bits, std::move(value));
}

}  // namespace qvr
