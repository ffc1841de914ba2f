// The records of the media database, as the report reads them.
//
// Records lie in the arena of the page that brought them; their texts and attributes are views into
// that arena. Times are seconds since 1970; 0x7fffffff and 0x7fffffffffffffff both mean forever.
#pragma once

#include <algorithm>
#include <cstdint>
#include <memory>
#include <span>
#include <string_view>
#include <vector>

#include "arena.h"
#include "ksui.h"
#include "packed_attrs.h"

namespace qvr {

// One stretch of a clone on one volume.
struct frag_t {
  std::int64_t fragoffset = 0;  // bytes from the start of the save set
  ksui volid;
  std::uint32_t mediafile = 0;  // file, record and mark on the medium where it begins
  std::uint32_t mediarec = 0;
  std::uint32_t mediamark = 0;
  std::int64_t ssaccess = 0;  // when it was last read
};

// One instance of a save set. `cloneid` is also the time at which the clone was made.
struct clone_t {
  std::int64_t cloneid = 0;
  std::uint32_t clflags = 0;
  std::uint32_t nfrags = 0;
  frag_t *frags = nullptr;  // in the arena, ordered by offset
  std::span<frag_t> fragments() const { return {frags, nfrags}; }
};

struct ss_t {
  std::uint32_t ss_head = 0;  // carried as it came
  ksui ssid;
  ksui pssid;
  std::int32_t level = 0;     // ss_levels.h
  std::int64_t savetime = 0;  // when the save began; with the client, it is as good as the ssid
  std::int64_t sscreate = 0;  // by the client's clock
  std::int64_t ssinsert = 0;  // into the database
  std::int64_t sscomp = 0;    // complete
  ksui clientid;
  std::uint32_t ssflags = 0;  // ss_flags.h
  std::string_view client;
  std::string_view name;        // usually the path that was saved
  std::uint64_t totalsize = 0;  // bytes
  std::uint64_t nfiles = 0;
  std::uint32_t ssbrowse = 0;  // seconds from ssinsert; 0xffffffff is forever
  std::uint32_t ssretent = 0;  // likewise
  packed_attrs attrs;
  std::uint32_t ncopies = 0;
  clone_t *clones = nullptr;  // in the arena
  std::span<clone_t> copies() const { return {clones, ncopies}; }
};

// Asks for the memory of a record and, with more than 3 lines of 64 bytes, of what lies behind it,
// its texts as a rule, some records before its turn. Any pointer will do.
inline void fetch_ahead(const ss_t *ss, std::size_t lines = 7) {
  auto *at = reinterpret_cast<const char *>(ss);
  for (std::size_t line = 0; line < lines; line++) __builtin_prefetch(at + 64 * line);
}

struct vol_t {
  std::uint32_t vol_head = 0;  // carried as it came
  ksui volid;
  std::string_view volume;
  std::string_view family;
  std::string_view type;
  std::string_view location;
  std::string_view pool;
  std::string_view barcode;
  std::uint64_t capacity = 0;  // kilobytes
  std::uint64_t written = 0;
  std::uint64_t read = 0;
  std::uint32_t next = 0;  // file and record to be written next
  std::uint32_t nrec = 0;
  std::int64_t volaccess = 0;
  std::int64_t volhold = 0;
  std::int64_t olabel = 0;     // first label
  std::int64_t labeled = 0;    // present label
  std::int64_t volretent = 0;  // expiry of its last save set
  std::uint32_t volflags = 0;
  std::uint32_t mounts = 0;
  std::uint32_t recycled = 0;
  std::uint32_t avail = 0;
  std::uint32_t metric = 0;
  packed_attrs volattrs;
  std::uint32_t nssids = 0;
  ksui *ssids = nullptr;  // in the arena
  std::span<ksui> savesets() const { return {ssids, nssids}; }
};

enum hist_operation : std::int32_t { HIST_CREATE = 0, HIST_UPDATE = 1, HIST_DELETE = 2 };

// One change record of a save set or clone.
struct hist {
  ksui hist_id;
  std::int64_t hist_clone = 0;
  std::int32_t operation = 0;
  std::int64_t timestamp = 0;
  std::string_view user;
  std::string_view property;
  std::string_view oldvalue;
  std::string_view newvalue;
  std::int64_t validity = 0;
  std::uint64_t changes = 0;
};

struct clidmap {
  ksui clientid;
  std::string clientname;
};

// A paged query's bounds: save times, ends included, and the most records wanted (0: no limit).
struct mr_range {
  std::uint64_t mr_start_time = 0;
  std::uint64_t mr_end_time = 0;
  std::int64_t mr_count = 0;
};

// A list of records with the pages that hold them. Removing a record drops its row here; the memory
// goes with the list. Moves, never copies.
template <class Record>
struct record_list {
  std::vector<Record *> rows;
  std::vector<std::shared_ptr<arena>> pages;

  bool empty() const { return rows.empty(); }
  std::size_t size() const { return rows.size(); }

  // Chains `behind` behind this list.
  void append(record_list &&behind) {
    if (rows.empty())
      rows = std::move(behind.rows);
    else
      rows.insert(rows.end(), behind.rows.begin(), behind.rows.end());
    pages.insert(pages.end(), std::make_move_iterator(behind.pages.begin()),
                 std::make_move_iterator(behind.pages.end()));
    behind.rows.clear();
    behind.pages.clear();
  }
  void clear() {
    rows.clear();
    pages.clear();
  }
};
using ss_list = record_list<ss_t>;
using vol_list = record_list<vol_t>;
using hist_list = record_list<hist>;

}  // namespace qvr
