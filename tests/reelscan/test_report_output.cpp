// Records in memory to the bytes of a report: tables, exports, and the long listing.

#include <gtest/gtest.h>

#include "records_for_test.h"
#include "report_output.h"
#include "report_spec.h"
#include "ss_flags.h"
#include "zone_guard.h"

namespace qvr {
namespace {

using namespace test;

constexpr std::int64_t MOMENT = 1709821845;  // 2024-03-07 14:30:45 UTC

class report_bytes : public ::testing::Test {
 protected:
  report_bytes() {
    first_ = make_.volume(1, "TAPE.001");
    second_ = make_.volume(2, "TAPE.002");
    ss_ = make_.save_set(41, "mars", "/home");
    ss_->savetime = ss_->ssinsert = ss_->sscreate = ss_->sscomp = MOMENT;
    ss_->ssbrowse = 86400;
    ss_->ssretent = 0xffffffff;
    ss_->totalsize = 12345678;
    ss_->nfiles = 17;
    ss_->ssflags = SS_VALID | SS_RECOVERABLE | SS_COMPLETE;
    ss_->level = 3;
    ss_->clientid = id_of(9, KSUI_CLIENT);
    ss_->attrs = make_.attrs(
        {{"*ss clone retention", {"1709821845:1709821845:86400"}}, {"group", {"Default", "a,b"}}});
    make_.set_clones(
        *ss_, {{MOMENT, {{1, 0, 2, 3}, {2, 10000000, 1, 0}}, SS_SUSPECT}, {MOMENT + 1, {}, 0}});
    bare_ = make_.save_set(42, "venus", "/var");
  }

  // What `print` sends to standard output.
  template <class Print>
  std::string bytes(const settings_t &settings, std::string_view spec, Print print) {
    report_columns_t columns;
    if (!spec.empty()) {
      EXPECT_EQ(parse_report_spec(spec, columns), nullptr);
    }
    close_report(columns);
    ::testing::internal::CaptureStdout();
    {
      report_output out(settings, false, columns);
      print(out);
      out.trailer();
    }
    std::fflush(stdout);
    return ::testing::internal::GetCapturedStdout();
  }

  static settings_t linear(export_kind_t kind = EXPORT_NONE, std::string spec = "") {
    settings_t settings;
    settings.linear_count = 1;
    settings.export_kind = kind;
    settings.export_spec = std::move(spec);
    return settings;
  }

  qvr_test::zone_guard zone_{"UTC"};
  record_maker make_;
  vol_t *first_, *second_;
  ss_t *ss_, *bare_;
};

constexpr char listing[] =
    "ssid=41 savetime=03/07/24 14:30:45 (1709821845) mars:/home\n"
    "  level=3      sflags=vrF      size=12345678     files=17         insert=03/07/24\n"
    "  create=03/07/24 complete=03/07/24 browse=03/08/24 14:30:45 retent=forever \n"
    "  clientid=";
constexpr char clones[] =
    "                       group: Default, \"a,b\";\n"
    "  Clone #1: cloneid=1709821845  time=03/07/24 14:30:45    retent=03/08/24  flags=s\n"
    "    frag@         0 volid=         1 file/rec=       2/3     rn=0 last=undef\n"
    "    frag@  10000000 volid=         2 file/rec=       1/0     rn=0 last=undef\n"
    "  Clone #2: cloneid=1709821846  time=03/07/24 14:30:46    retent=forever   flags=\n";

TEST_F(report_bytes, the_long_listing) {
  const std::string client = ksui_text(ss_->clientid, ksui_form::long_form) + "\n";
  EXPECT_EQ(bytes(linear(), "", [this](row_sink &out) { out.save_set(*ss_, nullptr); }),
            listing + client + clones);

  settings_t in_full = linear();
  in_full.long_linear = true;
  std::string text = bytes(in_full, "", [this](row_sink &out) { out.save_set(*ss_, nullptr); });
  EXPECT_EQ(text.substr(0, text.find('\n')),
            "ssid=41 (" + ksui_text(ss_->ssid, ksui_form::long_form) +
                ") savetime=03/07/24 14:30:45 (1709821845) mars:/home");

  EXPECT_EQ(bytes(linear(), "", [this](row_sink &out) { out.save_set(*bare_, first_); }), "")
      << "a listing of a volume stops at what has nothing on it";
}

constexpr char bare_listing[] =
    "ssid=42 savetime=undefined         (         0) venus:/var\n"
    "  level=full   sflags=         size=0            files=0          insert=undef\n"
    "  create=undef    complete=undef    browse=undefined  retent=undefined \n";

TEST_F(report_bytes, the_first_save_set_decides_the_lines) {
  // A client id is dropped when the first record had none.
  std::string text = bytes(linear(), "", [this](row_sink &out) {
    out.save_set(*bare_, nullptr);
    out.save_set(*ss_, nullptr);
  });
  std::string with_client = listing;
  EXPECT_EQ(text, bare_listing + with_client.substr(0, with_client.find("  clientid=")) + clones);

  // A continuation stands where it was first made: behind the name, or at the end.
  bare_->pssid = id_of(40);
  const std::string continued = "  continued from previous ssid=         40\n";
  std::string lines = bare_listing;
  std::size_t name_end = lines.find('\n') + 1;
  EXPECT_EQ(bytes(linear(), "", [this](row_sink &out) { out.save_set(*bare_, nullptr); }),
            lines.substr(0, name_end) + continued + lines.substr(name_end));
  text = bytes(linear(), "", [this](row_sink &out) {
    out.save_set(*ss_, nullptr);
    out.save_set(*bare_, nullptr);
  });
  EXPECT_EQ(text.substr(text.size() - lines.size() - continued.size()), lines + continued);
}

}  // namespace
}  // namespace qvr
