// The query language: any text. What comes out must be a list that the plan can lean on.
#include <cstring>

#include "fuzz.h"
#include "query_spec.h"

namespace {

std::string same_name(std::string_view name) {
  return std::string(name);
}

void check_order(const qvr::query_constraints_t &list) {
  bool unsorted = false;
  int last = 0x7fff;
  for (const qvr::query_constraint_t &node : list) {
    int code = node.qc_mr->mr_id;
    if (code > 49 && (unsorted || code > last)) std::abort();
    if (code <= 49) unsorted = true;
    last = code;
  }
}

}  // namespace

void fuzz(std::string_view text) {
  using namespace qvr;
  query_constraints_t list;
  const char *refusal = parse_query_spec(text, list, same_name);
  if (refusal != nullptr && std::strlen(refusal) > 129) std::abort();
  if (refusal == nullptr)
    parse_query_spec("!incomplete,client=x,savetime>=yesterday", list, same_name);
  if (text.size() > 0) parse_query_shortcut(text[0], text.substr(1), list, same_name);
  check_order(list);
  for (const query_constraint_t &node : list) {
    if (node.qc_cmp == QC_MIXED && node.values.size() > 16) std::abort();
    if (node.qc_cmp == QC_EQUAL && node.values.size() > 1) std::abort();
  }
}
