// Reports whose columns grow with their first row.
#include <gtest/gtest.h>

#include <cerrno>
#include <cstring>

#include "report.h"
#include "report_fixture.h"

namespace qvr {
namespace {

const std::vector<mr_t> &table() {
  static const std::vector<mr_t> fields = {
      make_field("ssid", RPT_STRING, "ssid=", "ssid", ""),
      make_field("client", RPT_STRING, " ", "client", "\n"),
      make_field("clonenum", RPT_NUMBER, "  Clone #", "clone-number", ":"),
  };
  return fields;
}

// What the command's renderer does in a linear run.
const auto stored = [](const report_column_t &column, char *buffer, std::size_t room) {
  if (!column.rc_value) return std::size_t{0};
  std::size_t size = std::min(column.rc_value->size(), room - 1);
  std::memcpy(buffer, column.rc_value->data(), size);
  buffer[size] = '\0';
  return size;
};

struct linear_run_t {
  explicit linear_run_t(rpt_form form = RPT_FORM_NONE, const char *spec = nullptr)
      : report(rpt_create(table())) {
    rpt_settings_t settings;
    settings.form = form;
    if (spec != nullptr) settings.spec = spec;
    settings.linear = true;
    settings.table = table();
    settings.stream = stream.file();
    writer = std::make_unique<rpt_writer>(settings, report);
  }
  std::string row(bool found = true) {
    writer->rpt_print_row(stored, [&] { return found; });
    return stream.take();
  }
  captured_stream stream;
  rpt_t report;
  std::unique_ptr<rpt_writer> writer;
};

TEST(linear, the_first_row_decides_the_columns) {
  linear_run_t run;
  EXPECT_EQ(rpt_add_value(run.report, "ssid", "12"), 0);
  EXPECT_EQ(rpt_add_text(run.report, "--"), 0);
  EXPECT_EQ(rpt_add_value(run.report, "client", "mars"), 0);
  EXPECT_EQ(rpt_add_value(run.report, "ssid", "345"), 0);  // replaces
  EXPECT_EQ(rpt_find_column(run.report, "ssid")->rc_width, 3);
  EXPECT_EQ(rpt_find_column(run.report, "SSID"), nullptr);
  EXPECT_EQ(run.row(), "ssid=345-- mars\n");

  ASSERT_EQ(run.report.columns.size(), 2u);  // the text column went with its row
  errno = 0;
  EXPECT_EQ(rpt_add_value(run.report, "clonenum", "1"), -1);
  EXPECT_EQ(errno, EACCES);
  EXPECT_EQ(rpt_add_value(run.report, "client", "venus"), 0);
  EXPECT_EQ(rpt_add_text(run.report, "end\n"), 0);
  EXPECT_EQ(run.row(), " venus\nend\n");
  EXPECT_EQ(run.row(), "");
  EXPECT_FALSE(rpt_lock_width(run.report));
}

TEST(linear, rows_that_are_not_found_still_lock_and_clear) {
  linear_run_t run(RPT_FORM_DELIMITED, ",");
  rpt_add_value(run.report, "ssid", "1");
  rpt_add_value(run.report, "client", "mars");
  rpt_add_value(run.report, "clonenum", std::string_view{});
  rpt_add_text(run.report, "never seen");
  EXPECT_EQ(run.row(false), "ssid,client,clone-number\n");
  rpt_add_value(run.report, "ssid", " 2 ");
  EXPECT_EQ(run.row(), "2,,\n");
  EXPECT_EQ(run.row(), "");
}

TEST(linear, text_as_messages_is_cut) {
  captured_stream stream;
  auto out = rptout_create({}, RPT_FORM_NONE, true, stream.file());
  rptout_print(*out, std::string(20000, 'x'));
  rptout_print(*out, {});
  rptout_end_row(*out);
  EXPECT_EQ(stream.take().size(), 18431u);
}

}  // namespace
}  // namespace qvr
