#include "ss_selection.h"

#include <algorithm>

namespace qvr {

namespace {

bool has_value(const packed_attrs &attrs, const attr_t &wanted) {
  packed_attrs::values_t values = packed_attrs::no_values();
  if (!attrs.find(wanted.name, values)) return false;
  if (wanted.values.empty()) return true;
  std::string_view value;
  while (values.next(value)) {
    for (const std::string &text : wanted.values) {
      if (text.size() == value.size() && attr_name_cmp(text, value) == 0) return true;
    }
  }
  return false;
}

}  // namespace

ss_selection::ss_selection(const lab_catalogue &catalogue, const std::string &client,
                           const std::string &name, std::int32_t level, const attrlist &attrs,
                           const attrlist &filter)
    : catalogue_(catalogue), by_client_(!client.empty()), level_(level) {
  if (by_client_) rows_ = catalogue.savesets_of(client);
  if (!name.empty()) {
    std::uint32_t number = 0;
    nothing_ = !catalogue.name_texts().find(name, number);
    name_ = number;
  }
  for (const attr_t &attr : attrs) add_attribute(attr, false);
  for (const attr_t &attr : filter) add_attribute(attr, true);
}

void ss_selection::add_attribute(const attr_t &attr, bool as_filter) {
  if (attr.name.empty()) return;
  if (!as_filter || attr_name_cmp(attr.name, "annotation") != 0 || attr.values.empty()) {
    attrs_.push_back(attr);
    return;
  }
  for (const std::string &text : attr.values) {
    auto regex = std::make_unique<regex_t>();
    // A text that is no expression matches nothing.
    if (regcomp(regex.get(), text.c_str(), REG_ICASE | REG_NOSUB) != 0) continue;
    annotations_.emplace_back(regex.release());
  }
  if (annotations_.empty()) nothing_ = true;
}

bool ss_selection::fits(const ss_row &row) const {
  if (nothing_ || (name_ && row.name != *name_)) return false;
  if (level_ != 0 && row.level > level_ - 1) return false;
  if (attrs_.empty() && annotations_.empty()) return true;
  packed_attrs attrs = row.attrs();
  for (const attr_t &wanted : attrs_) {
    if (!has_value(attrs, wanted)) return false;
  }
  if (annotations_.empty()) return true;
  std::string text(attrs.first("annotation"));
  return attrs.has("annotation") &&
         std::any_of(annotations_.begin(), annotations_.end(), [&](const auto &regex) {
           return regexec(regex.get(), text.c_str(), 0, nullptr, 0) == 0;
         });
}

std::size_t ss_selection::first_from(std::int64_t time) const {
  std::size_t low = 0, high = count();
  while (low < high) {
    std::size_t middle = (low + high) / 2;
    if (row_at(middle).savetime < time)
      low = middle + 1;
    else
      high = middle;
  }
  return low;
}

}  // namespace qvr
