#include "summary_counts.h"

#include <strings.h>

#include "dates.h"
#include "number_text.h"
#include "ss_flags.h"
#include "ss_levels.h"

namespace qvr {

namespace {

constexpr std::uint64_t EMPTY_SIZE = 4;  // bytes; a save set of no more holds nothing

summary_bucket bucket_of_level(std::int32_t level) {
  switch (level) {
    case LEVEL_FULL:
      return BUCKET_FULL;
    case LEVEL_INCR:
      return BUCKET_INCREMENTAL;
    case LEVEL_MANUAL:
      return BUCKET_ADHOC;
    case LEVEL_MIGRATION:
      return BUCKET_MIGRATION;
    default:
      return BUCKET_INTERMEDIATE;
  }
}

summary_bucket kind_of(const ss_t &ss) {
  bool archive = ss.ssretent == DELTA_FOREVER && ss.level != LEVEL_MIGRATION;
  return archive ? BUCKET_ARCHIVE : bucket_of_level(ss.level);
}

bool is_index(const ss_t &ss, const summary_terms_t &terms) {
  return ss.client.size() == terms.server.size() &&
         strncasecmp(ss.client.data(), terms.server.data(), ss.client.size()) == 0 &&
         terms.indexes->is_index_saveset(ss.name);
}

void count_recent(std::int64_t savetime, const summary_times_t &times, const usage_counter &one,
                  summary_counts &counts) {
  if (savetime < times.month) return;
  counts[BUCKET_MONTH].add(one);
  if (savetime >= times.day[SUMMARY_DAYS - 1]) counts[BUCKET_WEEK].add(one);
  for (int i = 0; i < SUMMARY_DAYS; i++) {
    if (savetime < times.day[static_cast<std::size_t>(i)]) continue;
    counts[static_cast<std::size_t>(BUCKET_DAY + i)].add(one);
    return;
  }
}

}  // namespace

summary_times_t summary_times() {
  summary_times_t times;
  for (int i = 0; i < SUMMARY_DAYS; i++) {
    times.day[static_cast<std::size_t>(i)] =
        qvr_getdate(std::string(str_i64(i)) + " days ago 00:00");
  }
  times.month = qvr_getdate("month ago");
  return times;
}

void summary_count(const ss_t &ss, const summary_terms_t &terms, summary_counts &counts) {
  // Rounded up without leaving 64 bits.
  std::uint64_t kilobytes = ss.totalsize / 1024 + (ss.totalsize % 1024 != 0 ? 1 : 0);
  usage_counter one{ss.nfiles, 1, ss.totalsize > EMPTY_SIZE ? kilobytes : 0};
  counts[BUCKET_ALL].add(one);
  counts[static_cast<std::size_t>(kind_of(ss))].add(one);
  if (ss.totalsize <= EMPTY_SIZE) counts[BUCKET_EMPTY].add(one);
  if ((ss.ssflags & SS_RECOVERABLE) != 0) counts[BUCKET_PURGED].add(one);
  if (is_index(ss, terms)) counts[BUCKET_INDEX].add(one);
  if ((ss.ssflags & SS_INCOMPLETE) != 0) counts[BUCKET_INCOMPLETE].add(one);
  count_recent(ss.savetime, terms.times, one, counts);
}

}  // namespace qvr
