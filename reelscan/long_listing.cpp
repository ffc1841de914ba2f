#include "long_listing.h"

#include <cstdlib>

#include "cell_flags.h"
#include "clone_retention.h"
#include "dates.h"
#include "display_width.h"
#include "number_text.h"
#include "ss_levels.h"

namespace qvr {

namespace {

constexpr std::size_t VALUE_SIZE = 1024;  // a formatted value, its NUL counted
constexpr std::size_t LINE_WIDTH = 80, EXPORT_WIDTH = 10000;
constexpr std::size_t FIRST_SIZE = 1024;  // of the attribute text

std::string in_short(const ksui &id) {
  return ksui_text(id, ksui_form::short_form);
}

std::int64_t browse_limit(const ss_t &ss) {
  return ss.ssbrowse == DELTA_FOREVER ? TIME_FOREVER_32 : ss_limit(ss, ss.ssbrowse);
}

std::int64_t retention_limit(const ss_t &ss) {
  return ss.ssretent == 0 ? 0 : time_add(ss.ssretent, ss.ssinsert);
}

std::string flags_text(std::uint32_t flags, flag_letters mode) {
  char text[64];
  cell_text out(text, sizeof text);
  rsc_flags_text(flags, mode, out);
  return std::string(out.text());
}

// What a clone or fragment may set later: the columns must be there before the first row.
constexpr std::string_view rest[] = {
    "clonenum", "cloneid", "time", "clretent", "flags", "fragoffset",
    "volid",    "type",    "file", "rec",      "rn",    "last",
};

}  // namespace

long_listing::long_listing(field_table table, bool ids_in_full, bool exported, cell_renderer &cells)
    : report_(rpt_create(table)), ids_in_full_(ids_in_full), exported_(exported), cells_(cells) {
  attribute_text_.reserve(FIRST_SIZE);
}

void long_listing::set(std::string_view keyword, std::string_view text) {
  rpt_add_value(report_, keyword, text.data() == nullptr ? std::string_view("") : text);
}

// Like "%*s": blanks fill up to the width in cells, on the left for a positive one.
void long_listing::set_padded(std::string_view keyword, int width, std::string_view text) {
  std::size_t cells = i18n_strwidth(text), wanted = static_cast<std::size_t>(std::abs(width));
  std::string value(text);
  if (cells < wanted) value.insert(width > 0 ? 0 : value.size(), wanted - cells, ' ');
  if (value.size() >= VALUE_SIZE) value.resize(VALUE_SIZE - 1);
  set(keyword, value);
}

std::string long_listing::long_time(std::int64_t time) {
  char text[VALUE_SIZE];
  cell_text out(text, sizeof text);
  cells_.times().rsc_long_time(time, out);
  return std::string(out.text());
}

std::string long_listing::short_date(std::int64_t time) {
  char text[VALUE_SIZE];
  cell_text out(text, sizeof text);
  cells_.times().rsc_short_date(time, out);
  return std::string(out.text());
}

void long_listing::fill_save_set(const ss_t &ss) {
  std::string id = in_short(ss.ssid);
  if (ids_in_full_) id += " (" + ksui_text(ss.ssid, ksui_form::long_form) + ")";
  set("ssid", id);
  set_padded("savetime1", -17, long_time(ss.savetime));
  set_padded("savetime2", 10, str_i64(ss.savetime));
  set("sshost", ss.client);
  set("ssname", ss.name);
  if (!ss.pssid.is_null()) set_padded("continuedfrom", 11, in_short(ss.pssid));
  set_padded("level", -7, level_report_name(ss.level));
  set_padded("sflags", -8, flags_text(ss.ssflags, flag_letters::save_set));
  set_padded("size", -12, str_u64(ss.totalsize));
  set_padded("files", -10, str_u64(ss.nfiles));
  set("insert", short_date(ss.ssinsert));
  set_padded("create", -8, short_date(ss.sscreate));
  set_padded("complete", -8, short_date(ss.sscomp));
  set_padded("browse", -8, long_time(browse_limit(ss)));
  set_padded("retent", -8, long_time(retention_limit(ss)));
  if (!ss.clientid.is_null()) set("clientid", in_short(ss.clientid));
  long_listing_attrs(ss.attrs);
}

void long_listing::register_rest(const ss_t &ss) {
  if (report_.locked) return;
  for (std::string_view keyword : rest) {
    if (rpt_find_column(report_, keyword) == nullptr) rpt_add_value(report_, keyword, {});
  }
  if (ss.pssid.is_null() && rpt_find_column(report_, "continuedfrom") == nullptr) {
    rpt_add_value(report_, "continuedfrom", {});
  }
}

void long_listing::fill_clone(const ss_t &ss, const clone_t &clone, std::uint32_t number) {
  set("clonenum", str_u64(number));
  set_padded("cloneid", -10, str_i64(clone.cloneid));
  set_padded("time", -17, long_time(clone.cloneid));
  set_padded("clretent", -8, short_date(clone_retention_time(ss, &clone)));
  set("flags", flags_text(clone.clflags, flag_letters::clone));
}

void long_listing::fill_fragment(const frag_t &frag) {
  set_padded("fragoffset", 10, str_i64(frag.fragoffset));
  set_padded("volid", 10, in_short(frag.volid));
  set_padded("file", 8, str_u64(frag.mediafile));
  set_padded("rec", -5, str_u64(frag.mediarec));
  set("rn", str_u64(frag.mediamark));
  set("last", short_date(frag.ssaccess));
}

void long_listing::long_listing_fill(const ss_t &ss, function_view<void()> print) {
  fill_save_set(ss);
  register_rest(ss);
  std::uint32_t number = 0;
  for (const clone_t &clone : ss.copies()) {
    print();
    fill_clone(ss, clone, ++number);
    for (const frag_t &frag : clone.fragments()) {
      print();
      fill_fragment(frag);
    }
  }
}

void long_listing::long_listing_attrs(const packed_attrs &attrs) {
  attribute_text_.clear();
  for (const attr_t &attr : attrs.unpack()) {
    if (attr_name_cmp(attr.name, ATTR_CLONE_RETENTION) == 0) continue;
    std::size_t start = attribute_text_.size();
    attr_print(attribute_text_, exported_ ? EXPORT_WIDTH : LINE_WIDTH, attr, 0, 0);
    if (exported_ && attribute_text_.size() > start && attribute_text_.back() == '\n') {
      attribute_text_.back() = ' ';
    }
  }
  set("attrs", attribute_text_);
}

}  // namespace qvr
