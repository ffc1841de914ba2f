#include "catalogue_file.h"
#include "ksui.h"
#include "sqlite_handle.h"

namespace qvr {

namespace {

// Attributes of records that come in ascending order of their owners: a cursor that is moved
// along with the records.
class attr_cursor {
 public:
  attr_cursor(sqlite3 *db, const char *sql) : rows_(db, sql), more_(rows_.step()) {}

  attrlist of(std::int64_t owner) {
    attrlist list;
    for (; more_ && rows_.i64(0) <= owner; more_ = rows_.step()) {
      if (rows_.i64(0) != owner) continue;
      if (rows_.is_null(3))
        attrlist_add(list, rows_.text(1));
      else
        attrlist_add(list, rows_.text(1), rows_.text(3));
    }
    return list;
  }
  bool good() const { return rows_.good(); }

 private:
  sqlite_statement rows_;
  bool more_;
};

// Copies with their fragments, in the same way.
class clone_cursor {
 public:
  explicit clone_cursor(sqlite3 *db)
      : clones_(db, "SELECT saveset, position, cloneid, clflags FROM clone ORDER BY 1, 2"),
        frags_(db,
               "SELECT saveset, clone, fragoffset, volid, mediafile, mediarec, mediamark, ssaccess "
               "FROM fragment ORDER BY saveset, clone, position"),
        more_clones_(clones_.step()),
        more_frags_(frags_.step()) {}

  // The lists stay valid until the next call.
  std::vector<clone_t> &of(std::int64_t saveset) {
    copies_.clear();
    frag_lists_.clear();
    for (; more_clones_ && clones_.i64(0) <= saveset; more_clones_ = clones_.step()) {
      if (clones_.i64(0) != saveset) continue;
      clone_t clone;
      clone.cloneid = clones_.i64(2);
      clone.clflags = clones_.u32(3);
      frag_lists_.push_back(frags_of(saveset, clones_.i64(1)));
      copies_.push_back(clone);
    }
    for (std::size_t i = 0; i < copies_.size(); i++) {
      copies_[i].frags = frag_lists_[i].data();
      copies_[i].nfrags = static_cast<std::uint32_t>(frag_lists_[i].size());
    }
    return copies_;
  }
  bool good() const { return clones_.good() && frags_.good(); }

 private:
  std::vector<frag_t> frags_of(std::int64_t saveset, std::int64_t clone) {
    std::vector<frag_t> list;
    for (; more_frags_; more_frags_ = frags_.step()) {
      std::int64_t owner = frags_.i64(0), copy = frags_.i64(1);
      if (owner > saveset || (owner == saveset && copy > clone)) break;
      if (owner != saveset || copy != clone) continue;
      frag_t frag;
      frag.fragoffset = frags_.i64(2);
      frag.volid = catalogue_id(frags_.text(3));
      frag.mediafile = frags_.u32(4);
      frag.mediarec = frags_.u32(5);
      frag.mediamark = frags_.u32(6);
      frag.ssaccess = frags_.i64(7);
      list.push_back(frag);
    }
    return list;
  }

  sqlite_statement clones_, frags_;
  bool more_clones_, more_frags_;
  std::vector<clone_t> copies_;
  std::vector<std::vector<frag_t>> frag_lists_;
};

bool read_clients(sqlite3 *db, catalogue_sink &sink) {
  sqlite_statement rows(db, "SELECT clientid, name FROM client ORDER BY rowid");
  while (rows.step()) {
    lab_client client;
    client.clientid = catalogue_id(rows.text(0));
    client.name = std::string(rows.text(1));
    sink.add_client(client);
  }
  return rows.good();
}

bool read_resources(sqlite3 *db, catalogue_sink &sink) {
  sqlite_statement rows(db, "SELECT id, database FROM resource ORDER BY id");
  attr_cursor attrs(db,
                    "SELECT resource, name, position, value FROM resource_attribute "
                    "ORDER BY resource, name, position");
  while (rows.step()) sink.add_resource({std::string(rows.text(1)), attrs.of(rows.i64(0))});
  return rows.good() && attrs.good();
}

bool read_volumes(sqlite3 *db, catalogue_sink &sink) {
  sqlite_statement rows(db,
                        "SELECT id, volid, head, volume, family, type, location, pool, barcode, "
                        "capacity, written, read, next, nrec, volaccess, volhold, olabel, labeled, "
                        "volretent, volflags, mounts, recycled, avail, metric "
                        "FROM volume ORDER BY id");
  attr_cursor attrs(db,
                    "SELECT volume, name, position, value FROM volume_attribute "
                    "ORDER BY volume, name, position");
  while (rows.step()) {
    vol_t vol;
    vol.volid = catalogue_id(rows.text(1));
    vol.vol_head = rows.u32(2);
    int column = 3;
    for (auto text : {&vol_t::volume, &vol_t::family, &vol_t::type, &vol_t::location, &vol_t::pool,
                      &vol_t::barcode})
      vol.*text = rows.text(column++);
    for (auto size : {&vol_t::capacity, &vol_t::written, &vol_t::read})
      vol.*size = rows.u64(column++);
    vol.next = rows.u32(column++);
    vol.nrec = rows.u32(column++);
    for (auto time :
         {&vol_t::volaccess, &vol_t::volhold, &vol_t::olabel, &vol_t::labeled, &vol_t::volretent})
      vol.*time = rows.i64(column++);
    for (auto word :
         {&vol_t::volflags, &vol_t::mounts, &vol_t::recycled, &vol_t::avail, &vol_t::metric})
      vol.*word = rows.u32(column++);
    std::string series = packed_attrs::pack(attrs.of(rows.i64(0)));
    vol.volattrs = packed_attrs(series);
    sink.add_vol(vol);
  }
  return rows.good() && attrs.good();
}

bool read_savesets(sqlite3 *db, catalogue_sink &sink) {
  sqlite_statement rows(db,
                        "SELECT id, ssid, pssid, head, level, savetime, sscreate, ssinsert, "
                        "sscomp, clientid, ssflags, client, name, totalsize, nfiles, ssbrowse, "
                        "ssretent FROM saveset ORDER BY id");
  attr_cursor attrs(db,
                    "SELECT saveset, name, position, value FROM saveset_attribute "
                    "ORDER BY saveset, name, position");
  clone_cursor clones(db);
  while (rows.step()) {
    ss_t ss;
    ss.ssid = catalogue_id(rows.text(1));
    ss.pssid = catalogue_id(rows.text(2));
    ss.ss_head = rows.u32(3);
    ss.level = rows.i32(4);
    int column = 5;
    for (auto time : {&ss_t::savetime, &ss_t::sscreate, &ss_t::ssinsert, &ss_t::sscomp})
      ss.*time = rows.i64(column++);
    ss.clientid = catalogue_id(rows.text(9));
    ss.ssflags = rows.u32(10);
    ss.client = rows.text(11);
    ss.name = rows.text(12);
    ss.totalsize = rows.u64(13);
    ss.nfiles = rows.u64(14);
    ss.ssbrowse = rows.u32(15);
    ss.ssretent = rows.u32(16);
    std::string series = packed_attrs::pack(attrs.of(rows.i64(0)));
    ss.attrs = packed_attrs(series);
    std::vector<clone_t> &copies = clones.of(rows.i64(0));
    ss.clones = copies.data();
    ss.ncopies = static_cast<std::uint32_t>(copies.size());
    sink.add_ss(ss);
  }
  return rows.good() && attrs.good() && clones.good();
}

bool read_history(sqlite3 *db, catalogue_sink &sink) {
  sqlite_statement rows(db,
                        "SELECT ssid, cloneid, operation, timestamp, user, property, oldvalue, "
                        "newvalue, validity, client, name, clientid FROM history ORDER BY id");
  while (rows.step()) {
    lab_history history;
    hist &record = history.record;
    record.hist_id = catalogue_id(rows.text(0));
    record.hist_clone = rows.i64(1);
    record.operation = rows.i32(2);
    record.timestamp = rows.i64(3);
    int column = 4;
    for (auto text : {&hist::user, &hist::property, &hist::oldvalue, &hist::newvalue})
      record.*text = rows.text(column++);
    record.validity = rows.i64(8);
    history.client = std::string(rows.text(9));
    history.name = std::string(rows.text(10));
    history.clientid = catalogue_id(rows.text(11));
    sink.add_history(history);
  }
  return rows.good();
}

}  // namespace

ksui catalogue_id(std::string_view text) {
  ksui id;
  if (text != "0") ksui_parse(text, id);
  return id;
}

bool read_catalogue_file(const std::string &path, catalogue_sink &sink, std::string &why) {
  sqlite3 *opened = nullptr;
  int status = sqlite3_open_v2(path.c_str(), &opened, SQLITE_OPEN_READONLY, nullptr);
  sqlite_database database(opened);
  if (status == SQLITE_OK && read_clients(opened, sink) && read_resources(opened, sink) &&
      read_volumes(opened, sink) && read_savesets(opened, sink) && read_history(opened, sink))
    return true;
  why = path + ": " + sqlite3_errmsg(opened);
  return false;
}

}  // namespace qvr
