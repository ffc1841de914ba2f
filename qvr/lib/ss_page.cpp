// Save sets of a range, page by page.
#include <algorithm>
#include <limits>

#include "err_class.h"
#include "mmdb_stubs.h"
#include "queries.h"
#include "take_list.h"

namespace qvr {

namespace {

// Where the next page begins.
class position_t {
 public:
  position_t(std::uint64_t start, const ksui &last) : start_(start), seen_{last} {}

  // Moves behind a page's last record as `more` says; false when that is no way forward.
  bool move(int more, const ss_t &last) {
    auto time = static_cast<std::uint64_t>(last.savetime);
    std::uint64_t start = more == 1 ? time + 1 : time;
    ksui id = more == 1 ? ksui() : last.ssid;
    if (start < start_) return false;
    if (start == start_ && std::ranges::find(seen_, id) != seen_.end()) return false;
    if (start != start_) seen_.clear();
    start_ = start;
    seen_.push_back(id);
    return true;
  }
  std::uint64_t start() const { return start_; }
  const ksui &last() const { return seen_.back(); }

 private:
  std::uint64_t start_;
  std::vector<ksui> seen_;  // what ended the pages of this start time
};

ss_list one_page(const ss_page_t &page, int &more) {
  return mif_run<ss_list>(
      [&](mif_t &mif) { return take_ss_list(mif, mmdb_get_ss_range(*mif.mif_clnt, page), more); });
}

// A page that leads nowhere is dropped and asked for once more; a server that sends such a page
// again is given up.
ss_list all_pages(ss_page_t &page, int &more) {
  bool limited = page.range.mr_count > 0;
  std::int64_t left = page.range.mr_count;
  position_t position(page.range.mr_start_time, page.last);
  bool repeated = false;
  ss_list all;
  for (bool ends = false; !ends;) {
    page.range.mr_count = limited ? std::min(left, MMDB_PAGE_RECORDS) : MMDB_PAGE_RECORDS;
    page.range.mr_start_time = position.start();
    page.last = position.last();
    ss_list got = one_page(page, more);
    if (got.empty()) {
      if (mif_get().mif_error.code != 0) return {};
      break;
    }
    auto count = static_cast<std::int64_t>(got.size());
    ends = more == 0 || (limited && count >= left);
    if (!ends && !position.move(more, *got.rows.back())) {
      if (!std::exchange(repeated, true)) continue;
      mif_store_error(err_from_text(
          ERR_MDB, 2, "The media database repeats a page of save sets instead of going on.\n"));
      return {};
    }
    left -= std::min(left, count);
    all.append(std::move(got));
  }
  return all;
}

ss_list from_storage(mif_t &mif, const ss_page_t &page) {
  if (mif_connect() != MIF_CONNECTED || mif.mif_catalog == nullptr) return {};
  ss_reply reply = mif.mif_catalog->range(page.client, page.name, page.filter, page.range);
  if (reply.status != MMDB_OK) {
    mif_store_error(reply.error);
    return {};
  }
  translate_names(mif, reply.list);
  return std::move(reply.list);
}

}  // namespace

ss_list get_ss_page(const ss_page_t &page, int *more) {
  int unasked;
  int &rest = more != nullptr ? *more : unasked;
  rest = 0;
  mif_t &mif = mif_get();
  ss_page_t sent = page;
  if (sent.range.mr_end_time == 0)
    sent.range.mr_end_time = std::numeric_limits<std::int64_t>::max();
  if (mif.mif_storage) return from_storage(mif, sent);
  if (sent.range.mr_count > 0 && sent.range.mr_count <= MMDB_PAGE_RECORDS)
    return one_page(sent, rest);
  return all_pages(sent, rest);
}

}  // namespace qvr
