#include "xml_report.h"

#include <algorithm>
#include <vector>

namespace qvr {

namespace {

std::string_view escape_of(char c) {
  switch (c) {
    case '"':
      return "&quot;";
    case '&':
      return "&amp;";
    case '\'':
      return "&apos;";
    case '<':
      return "&lt;";
    case '>':
      return "&gt;";
    default:
      return {};
  }
}

constexpr std::string_view element_types[] = {
    "#PCDATA",          // none
    "string-field",     // RPT_STRING
    "number-field",     // RPT_SIGNED
    "number-field",     // RPT_UNSIGNED
    "bytes-field",      // RPT_BYTES
    "kilobytes-field",  // RPT_KILOBYTES
    "time-field",       // RPT_TIME
    "boolean-field",    // RPT_FLAGS
    "level-field",      // RPT_LEVEL
    "number-field",     // RPT_NUMBER
    "id-field",         // RPT_ID
    "#PCDATA",          // RPT_DURATION
};

constexpr std::string_view field_kinds =
    "<!ELEMENT boolean-field (#PCDATA)>\n"
    "<!ELEMENT bytes-field (#PCDATA)>\n"
    "<!ELEMENT id-field (#PCDATA)>\n"
    "<!ELEMENT kilobytes-field (#PCDATA)>\n"
    "<!ELEMENT level-field (#PCDATA)>\n"
    "<!ELEMENT number-field (#PCDATA)>\n"
    "<!ELEMENT string-field (#PCDATA)>\n"
    "<!ELEMENT time-field (#PCDATA)>\n";

std::string_view element_type(const mr_t &field) {
  return element_types[field.mr_type < std::size(element_types) ? std::size_t{field.mr_type} : 0];
}

// The fields in the order of their long names, the first of each name.
std::vector<const mr_t *> fields_by_name(field_table table) {
  std::vector<const mr_t *> fields;
  for (const mr_t &field : table) fields.push_back(&field);
  std::stable_sort(fields.begin(), fields.end(),
                   [](const mr_t *a, const mr_t *b) { return a->mr_longname < b->mr_longname; });
  fields.erase(
      std::unique(fields.begin(), fields.end(),
                  [](const mr_t *a, const mr_t *b) { return a->mr_longname == b->mr_longname; }),
      fields.end());
  return fields;
}

}  // namespace

bool xml_escape_value(std::string_view value, row_text &out) {
  bool any = false;
  std::size_t plain = 0;  // where the text that needs no escape begins
  for (std::size_t at = 0; at < value.size(); at++) {
    char c = value[at];
    if (c > '>' || (c != '"' && c != '&' && c != '\'' && c != '<' && c != '>')) continue;
    out.append(value.substr(plain, at - plain)).append(escape_of(c));
    plain = at + 1;
    any = true;
  }
  value.remove_prefix(plain);
  out.append(value);
  return any;
}

std::string rpt_xml_root_name(bool linear) {
  return std::string("reelscan-") + (linear ? "linear" : "tabular") + "-report";
}

void rptout_write_dtd(rptout_t &out, std::string_view root, field_table table) {
  std::vector<const mr_t *> fields = fields_by_name(table);
  std::string text = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<!DOCTYPE ";
  text.append(root).append(" [\n<!ELEMENT result (field*)>\n<!ELEMENT field (");
  for (std::size_t i = 0; i < fields.size(); i++) {
    if (i != 0) text += " | ";
    text += fields[i]->mr_longname;
  }
  text += ")>\n";
  for (const mr_t *field : fields) {
    text.append("<!ELEMENT ").append(field->mr_longname).append(" (");
    text.append(element_type(*field)).append(")>\n");
  }
  text.append(field_kinds).append("]>\n\n<").append(root).append(">\n");
  out.row.append(text);
  rptout_flush(out);
}

}  // namespace qvr
