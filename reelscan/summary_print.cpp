#include "summary_print.h"

#include <algorithm>

#include "cell_sizes.h"
#include "dates.h"
#include "format.h"
#include "msg.h"
#include "number_text.h"
#include "rptout.h"

namespace qvr {

namespace {

constexpr std::int64_t DAY = 86400;

// A type of save set that has a line: its bucket and its label.
struct type_line_t {
  summary_bucket bucket;
  std::int32_t id;
  const char *label;
};
constexpr type_line_t TYPE_LINES[] = {
    {BUCKET_ALL, 3056, "save sets"},
    {BUCKET_FULL, 5921, "full"},
    {BUCKET_INCREMENTAL, 6113, "incremental"},
    {BUCKET_INTERMEDIATE, 6114, "intermediate"},
    {BUCKET_ADHOC, 6115, "ad-hoc"},
    {BUCKET_ARCHIVE, 6116, "archive"},
    {BUCKET_MIGRATION, 6117, "migration"},
    {BUCKET_EMPTY, 6118, "empty"},
    {BUCKET_PURGED, 6119, "purged"},
    {BUCKET_INDEX, 6120, "index"},
    {BUCKET_INCOMPLETE, 5831, "incomplete"},
};

// To the right in a field of that width; below 0, to the left.
std::string padded(int width, const char *text) {
  char buffer[256];
  i18n_snprintf(buffer, sizeof buffer, "%*s", width, text);
  return buffer;
}

// A mean that is rounded up from three quarters.
std::uint64_t mean(std::uint64_t sum, std::uint64_t count) {
  return (sum + count / 4) / count;
}

class summary_lines {
 public:
  explicit summary_lines(const rpt_settings_t &settings)
      : report_(rpt_create(settings.table)), writer_(settings, report_) {}

  void text(const char *text_) { rpt_add_text(report_, text_); }
  void column(const char *keyword) { rpt_add_value(report_, keyword, {}); }
  void percent(const char *keyword, int percent_) {
    char value[64];
    i18n_snprintf(value, sizeof value, "%4d", percent_);
    rpt_add_value(report_, keyword, value);
  }

  void summary_print_row(const usage_counter &counter, const char *label) {
    add("nsavesets", padded(6, str_u64(counter.savesets)));
    add("label", padded(-12, label));
    if (counter.savesets != 0 && counter.files != 0) add_files(counter);
    text("\n");
    if (rpt_lock_width(report_)) summary_print_header();
    summary_flush();
  }

  void summary_flush() {
    rptout_t &out = writer_.out();
    for (const report_column_t &column_ : report_.columns) {
      if (writer_.exported())
        rptout_emit(out, {}, column_);
      else if (column_.rc_value && !column_.rc_value->empty())
        rptout_emit_linear(out, {}, column_);
    }
    rptout_end_row(out);
    rpt_clear_values(report_);
  }

  void trailer() { writer_.rpt_print_trailer(); }

 private:
  void add(const char *keyword, const std::string &value) {
    rpt_add_value(report_, keyword, value);
  }
  void add_size(const char *keyword, std::uint64_t kilobytes) {
    char size[32];
    cell_text out(size, sizeof size);
    rsc_size_kb_text(kilobytes, out);
    add(keyword, padded(9, size));
  }
  void add_files(const usage_counter &counter) {
    add("totalfiles", padded(9, str_u64(counter.files)));
    add("files/saveset", padded(6, str_u64(mean(counter.files, counter.savesets))));
    if (counter.kilobytes == 0) return;
    add_size("totalsize", counter.kilobytes);
    add_size("size/saveset", mean(counter.kilobytes, counter.savesets));
    add_size("size/file", mean(counter.kilobytes, counter.files));
  }
  void summary_print_header() {
    if (writer_.settings().form == RPT_FORM_XML) {
      writer_.rpt_print_prolog();
    } else if (writer_.exported()) {
      for (const report_column_t &column_ : report_.columns) {
        rptout_emit_title(writer_.out(), column_);
      }
      rptout_end_row(writer_.out());
    }
  }

  rpt_t report_;
  rpt_writer writer_;
};

void print_types(summary_lines &lines, const summary_counts &counts) {
  lines.text(catalog_text(6112, " Save Set Type Summary:\n"));
  lines.column("fullfiles/incremental");
  lines.column("filesonline");
  for (const type_line_t &type : TYPE_LINES) {
    lines.summary_print_row(counts[static_cast<std::size_t>(type.bucket)],
                            catalog_text(type.id, type.label));
  }
}

void add_ratios(summary_lines &lines, const summary_counts &counts) {
  const usage_counter &all = counts[BUCKET_ALL], &full = counts[BUCKET_FULL];
  const usage_counter &incremental = counts[BUCKET_INCREMENTAL], &purged = counts[BUCKET_PURGED];
  bool some_online = purged.files != 0 && purged.files < all.files;
  if (!(full.files != 0 && incremental.files != 0) && !some_online) return;
  lines.text("\n");
  int ratio = percent_full_per_incremental(full, incremental);
  if (ratio >= 0) lines.percent("fullfiles/incremental", ratio);
  ratio = percent_files_online(all, purged);
  if (ratio >= 0) lines.percent("filesonline", ratio);
}

void print_days(summary_lines &lines, const summary_counts &counts, const summary_times_t &times,
                const summary_period_t &period) {
  for (std::size_t i = 0; i < SUMMARY_DAYS && times.day[i] >= period.start; i++) {
    if (times.day[i] > period.end) continue;
    lines.summary_print_row(counts[BUCKET_DAY + i],
                            i == 0 ? catalog_text(6122, "today") : date_short(times.day[i]));
  }
  std::uint64_t all = counts[BUCKET_ALL].savesets;
  if (counts[BUCKET_WEEK].savesets == all) return;
  lines.summary_print_row(counts[BUCKET_WEEK], catalog_text(6123, "one week"));
  if (counts[BUCKET_MONTH].savesets == all) return;
  lines.summary_print_row(counts[BUCKET_MONTH], catalog_text(6124, "one month"));
}

}  // namespace

int percent_full_per_incremental(const usage_counter &full, const usage_counter &incremental) {
  if (full.files == 0 || full.savesets == 0 || incremental.savesets == 0) return -1;
  std::uint64_t average = std::max<std::uint64_t>(full.files / full.savesets, 1);
  bool large = incremental.savesets > 499 && !(average <= 999 && incremental.files <= 0xffffff);
  std::uint64_t percent = large ? incremental.files / (incremental.savesets / 100) / average
                                : incremental.files * 100 / incremental.savesets / average;
  return static_cast<int>(std::clamp<std::uint64_t>(percent, 1, 100));
}

int percent_files_online(const usage_counter &all, const usage_counter &purged) {
  if (purged.files == 0 || purged.files >= all.files) return -1;
  std::uint64_t percent =
      all.files <= 1000 ? purged.files * 100 / all.files : purged.files / (all.files / 100);
  return 100 - static_cast<int>(std::min<std::uint64_t>(percent, 99));
}

void summary_print(const rpt_settings_t &settings, const summary_counts &counts,
                   const summary_times_t &times, const summary_period_t &period) {
  summary_lines lines(settings);
  print_types(lines, counts);
  add_ratios(lines, counts);
  bool recent = times.day[SUMMARY_DAYS - 1] <= period.end && period.end - period.start > DAY;
  if (recent) {
    lines.text("\n");
    lines.text(catalog_text(6121, " Recent Save Set Usage Summary:\n"));
  }
  lines.summary_flush();
  if (recent) print_days(lines, counts, times, period);
  lines.trailer();
}

}  // namespace qvr
