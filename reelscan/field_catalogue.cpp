#include "field_catalogue.h"

#include <algorithm>
#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "catalogue.h"
#include "field_rows.h"

namespace qvr {

namespace {

using namespace catalogue_rows;

// ---- What other places lean on, proved when this file is compiled.

constexpr char lower(char c) {
  return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

consteval bool same_word(std::string_view a, std::string_view b) {
  return std::equal(a.begin(), a.end(), b.begin(), b.end(),
                    [](char x, char y) { return lower(x) == lower(y); });
}

template <class Rows>
consteval bool keys_differ(const Rows &rows) {
  for (std::size_t i = 0; i < rows.size(); i++) {
    for (std::size_t j = i + 1; j < rows.size(); j++) {
      if (same_word(rows[i].key, rows[j].key)) return false;
    }
  }
  return true;
}

consteval bool keyword_fits(const field_row_t &row) {
  return row.type == RPT_FLAGS && row.width != 0 && row.code > 0 && row.texts.narrow.id == 0 &&
         row.texts.narrow.text == nullptr;
}

consteval bool field_fits(const field_row_t &row) {
  if (row.type < RPT_STRING || row.type > RPT_DURATION) return false;
  if (row.code == 0 || row.code < RPT_NEWLINE_ID || row.code > 173) return false;
  if (row.texts.longname.id == 0) return false;
  if (row.flags == KEYWORD) return keyword_fits(row);
  if (row.width < 1 || row.width > 255) return false;
  return row.flags == REPORT || row.flags == EQUAL || row.flags == RANGE || row.flags == LIST ||
         row.flags == MIXED;
}

consteval bool fields_fit() {
  for (const field_row_t &row : field_rows) {
    if (!field_fits(row)) return false;
  }
  return true;
}

consteval bool linear_fits() {
  for (const linear_row_t &row : linear_rows) {
    if (row.type < RPT_STRING || row.type > RPT_DURATION || row.texts.longname.id == 0)
      return false;
    if (row.flags != REPORT && row.flags != EQUAL && row.flags != LIST) return false;
  }
  return true;
}

consteval bool follows(std::string_view first, std::string_view second) {
  for (std::size_t i = 0; i + 1 < field_rows.size(); i++) {
    if (field_rows[i].key == first) return field_rows[i + 1].key == second;
  }
  return false;
}

static_assert(field_rows.size() == 118 && linear_rows.size() == 38);
static_assert(keys_differ(field_rows) && keys_differ(linear_rows));
static_assert(fields_fit() && linear_fits());
static_assert(follows("savetime", "nsavetime"));  // an exact save time turns into it

// ---- The tables that the command reads.

std::string translated(const text_t &text) {
  return text.id == 0 ? text.text : catalogue_find(text.id, nullptr, text.text);
}

mr_t make_field(const char *key, rpt_type type, std::uint16_t flags, const texts_t &texts) {
  const text_t &longname = texts.longname.id < 0 ? texts.title : texts.longname;
  const text_t &narrow = texts.narrow.id < 0 ? texts.title : texts.narrow;
  mr_t field;
  field.mr_key = key;
  field.mr_type = type;
  field.mr_flags = flags;
  field.mr_title = translated(texts.title);
  field.mr_longname = translated(longname);
  field.has_short = narrow.text != nullptr;
  if (field.has_short) field.mr_short = translated(narrow);
  return field;
}

std::vector<mr_t> build_fields() {
  std::vector<mr_t> fields;
  fields.reserve(field_rows.size());
  for (const field_row_t &row : field_rows) {
    mr_t &field = fields.emplace_back(make_field(row.key, row.type, row.flags, row.texts));
    field.mr_id = row.code;
    field.mr_width = row.width;
  }
  return fields;
}

std::vector<mr_t> build_linear() {
  std::vector<mr_t> fields;
  fields.reserve(linear_rows.size());
  for (const linear_row_t &row : linear_rows) {
    fields.push_back(make_field(row.key, row.type, row.flags, row.texts));
  }
  return fields;
}

}  // namespace

field_table field_catalogue() {
  static const std::vector<mr_t> fields = build_fields();
  return fields;
}

field_table linear_catalogue() {
  static const std::vector<mr_t> fields = build_linear();
  return fields;
}

}  // namespace qvr
