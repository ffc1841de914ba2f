// The report language, and the text of an export form: any text.
#include <cstring>

#include "export_spec.h"
#include "fuzz.h"
#include "report_spec.h"

void fuzz(std::string_view text) {
  using namespace qvr;
  report_columns_t columns;
  const char *refusal = parse_report_spec(text, columns);
  if (refusal != nullptr && std::strlen(refusal) > 129) std::abort();
  close_report(columns);
  for (const report_column_t &column : columns) {
    if (column.rc_width < 1 || column.rc_width > 255 || !column.rc_mr->has_short) std::abort();
  }
  std::string spec;
  std::vector<std::string> pieces;
  if (!text.empty() && rpt_check_spec(text, spec) < 0) rpt_split_printf(spec, pieces);
  if (spec.size() > text.size()) std::abort();
}
