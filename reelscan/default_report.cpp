#include "default_report.h"

namespace qvr {

namespace {

struct default_row_t {
  bool (*applies)(const settings_t &);
  std::string_view spec;  // empty: the report builds its columns from the data
};

constexpr default_row_t history_rows[] = {
    {[](const settings_t &s) { return s.verbose() || s.very_verbose(); },
     "ssid, property, oldvalue, newvalue, validity"},
    {[](const settings_t &) { return true; }, "ssid, property, newvalue"},
};

constexpr default_row_t report_rows[] = {
    {[](const settings_t &s) { return s.media_count != 0; },
     "state, volume(24), written, %used, space, volretent, read, space, mounts(5), space(2), "
     "capacity"},
    {[](const settings_t &s) { return s.bootstrap_count != 0; }, ""},
    {[](const settings_t &s) { return s.plain_count != 0; },
     "savetime, ssbrowse, ssretent, space(2), ssid(11), client, space, name, vmname"},
    {[](const settings_t &s) { return s.very_verbose(); },
     "volume(20), client(16), fragsize, level(6), name, newline, space, ssid, nsavetime, "
     "savetime(24), space, ssbrowse, clretent, newline, first, last, mediafile, mediarec, volid, "
     "totalsize, fragflags"},
    {[](const settings_t &s) { return s.verbose(); },
     "volume, type, client, savetime(24), space, sumsize, ssid(11), sumflags(3), level, space, "
     "name"},
    {[](const settings_t &s) { return s.vm_count != 0; },
     "volume, type, vmname, savetime(24), space, sumsize, ssid(11), sumflags(3), backup_size"},
    {[](const settings_t &) { return true; },
     "volume, client, savetime, sumsize, space(2), level(6), space(2), name"},
};

// Behind the media report, one after the other.
constexpr default_row_t media_rows[] = {
    {[](const settings_t &s) { return s.verbose(); }, "volid, next, space, type"},
    {[](const settings_t &s) { return s.very_verbose(); }, "space, volflags"},
};

template <std::size_t N>
std::string_view first_that_applies(const default_row_t (&rows)[N], const settings_t &settings) {
  for (const default_row_t &row : rows) {
    if (row.applies(settings)) return row.spec;
  }
  return {};
}

}  // namespace

std::vector<std::string_view> default_report(const settings_t &settings) {
  if (settings.history != 0) {
    if (settings.report_given != 0) return {};
    return {first_that_applies(history_rows, settings)};
  }
  if (settings.report_given != 0 || settings.linear() || settings.summary_count != 0) return {};
  std::string_view first = first_that_applies(report_rows, settings);
  if (first.empty()) return {};
  std::vector<std::string_view> specs = {first};
  if (settings.media_count == 0) return specs;
  for (const default_row_t &row : media_rows) {
    if (row.applies(settings)) specs.push_back(row.spec);
  }
  return specs;
}

}  // namespace qvr
