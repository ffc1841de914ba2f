#include <unistd.h>

#include "catalogue_file.h"
#include "ksui.h"
#include "schema_text.h"
#include "sqlite_handle.h"

namespace qvr {

namespace {

sqlite3 *open_new(const std::string &path) {
  unlink(path.c_str());
  sqlite3 *database = nullptr;
  sqlite3_open_v2(path.c_str(), &database, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE, nullptr);
  // A half-written file is of no use, so nothing is paid for getting back to the state before.
  sqlite3_exec(database, "PRAGMA journal_mode=OFF; PRAGMA synchronous=OFF;", nullptr, nullptr,
               nullptr);
  sqlite3_exec(database, LAB_SCHEMA, nullptr, nullptr, nullptr);
  sqlite3_exec(database, "BEGIN", nullptr, nullptr, nullptr);
  return database;
}

}  // namespace

std::string catalogue_id_text(const ksui &id) {
  if (id.is_null()) return "0";
  return id.is_invalid() ? "invalid" : ksui_text(id, ksui_form::long_form);
}

struct catalogue_writer::state_t {
  explicit state_t(const std::string &path) : database(open_new(path)) {}

  sqlite_database database;
  sqlite3 *db = database.get();
  sqlite_statement meta{db, "INSERT OR REPLACE INTO meta VALUES (?,?)"};
  sqlite_statement client{db, "INSERT INTO client VALUES (?,?)"};
  sqlite_statement resource{db, "INSERT INTO resource VALUES (?,?)"};
  sqlite_statement resource_attr{db, "INSERT INTO resource_attribute VALUES (?,?,?,?)"};
  sqlite_statement vol{
      db, "INSERT INTO volume VALUES (?,?,?,?,?,?,?,?,?,?,?,?,?,?,?,?,?,?,?,?,?,?,?,?)"};
  sqlite_statement vol_attr{db, "INSERT INTO volume_attribute VALUES (?,?,?,?)"};
  sqlite_statement ss{db, "INSERT INTO saveset VALUES (?,?,?,?,?,?,?,?,?,?,?,?,?,?,?,?,?)"};
  sqlite_statement ss_attr{db, "INSERT INTO saveset_attribute VALUES (?,?,?,?)"};
  sqlite_statement clone{db, "INSERT INTO clone VALUES (?,?,?,?)"};
  sqlite_statement fragment{db, "INSERT INTO fragment VALUES (?,?,?,?,?,?,?,?,?)"};
  sqlite_statement history{db, "INSERT INTO history VALUES (?,?,?,?,?,?,?,?,?,?,?,?,?)"};
  std::int64_t resources = 0, volumes = 0, savesets = 0, changes = 0;

  static void put_attrs(sqlite_statement &to, std::int64_t owner, const attrlist &list) {
    for (const attr_t &attr : list) {
      if (attr.values.empty()) to.bind(owner).bind(attr.name).bind(-1).bind_null().run();
      for (std::size_t i = 0; i < attr.values.size(); i++)
        to.bind(owner).bind(attr.name).bind(i).bind(attr.values[i]).run();
    }
  }
  bool good() const {
    return db != nullptr && meta.good() && client.good() && resource.good() &&
           resource_attr.good() && vol.good() && vol_attr.good() && ss.good() && ss_attr.good() &&
           clone.good() && fragment.good() && history.good();
  }
};

catalogue_writer::catalogue_writer(const std::string &path)
    : state_(std::make_unique<state_t>(path)) {
  set_meta("format", "1");
}

catalogue_writer::~catalogue_writer() = default;

void catalogue_writer::set_meta(const std::string &key, const std::string &value) {
  state_->meta.bind(key).bind(value).run();
}

void catalogue_writer::add_client(const lab_client &client) {
  state_->client.bind(catalogue_id_text(client.clientid)).bind(client.name).run();
}

void catalogue_writer::add_resource(const lab_resource &resource) {
  std::int64_t id = ++state_->resources;
  state_->resource.bind(id).bind(resource.database).run();
  state_t::put_attrs(state_->resource_attr, id, resource.attrs);
}

void catalogue_writer::add_vol(const vol_t &vol) {
  std::int64_t id = ++state_->volumes;
  sqlite_statement &to = state_->vol;
  to.bind(id).bind(catalogue_id_text(vol.volid)).bind(vol.vol_head);
  to.bind(vol.volume).bind(vol.family).bind(vol.type).bind(vol.location).bind(vol.pool);
  to.bind(vol.barcode).bind(vol.capacity).bind(vol.written).bind(vol.read);
  to.bind(vol.next).bind(vol.nrec).bind(vol.volaccess).bind(vol.volhold).bind(vol.olabel);
  to.bind(vol.labeled).bind(vol.volretent).bind(vol.volflags).bind(vol.mounts);
  to.bind(vol.recycled).bind(vol.avail).bind(vol.metric).run();
  state_t::put_attrs(state_->vol_attr, id, vol.volattrs.unpack());
}

void catalogue_writer::add_ss(const ss_t &ss) {
  std::int64_t id = ++state_->savesets;
  sqlite_statement &to = state_->ss;
  to.bind(id)
      .bind(catalogue_id_text(ss.ssid))
      .bind(catalogue_id_text(ss.pssid))
      .bind(ss.ss_head)
      .bind(ss.level);
  to.bind(ss.savetime).bind(ss.sscreate).bind(ss.ssinsert).bind(ss.sscomp);
  to.bind(catalogue_id_text(ss.clientid)).bind(ss.ssflags).bind(ss.client).bind(ss.name);
  to.bind(ss.totalsize).bind(ss.nfiles).bind(ss.ssbrowse).bind(ss.ssretent).run();
  state_t::put_attrs(state_->ss_attr, id, ss.attrs.unpack());
  for (std::size_t c = 0; c < ss.ncopies; c++) {
    const clone_t &clone = ss.clones[c];
    state_->clone.bind(id).bind(c).bind(clone.cloneid).bind(clone.clflags).run();
    for (std::size_t f = 0; f < clone.nfrags; f++) {
      const frag_t &frag = clone.frags[f];
      sqlite_statement &at = state_->fragment;
      at.bind(id).bind(c).bind(f).bind(frag.fragoffset).bind(catalogue_id_text(frag.volid));
      at.bind(frag.mediafile).bind(frag.mediarec).bind(frag.mediamark).bind(frag.ssaccess).run();
    }
  }
}

void catalogue_writer::add_history(const lab_history &history) {
  const hist &record = history.record;
  sqlite_statement &to = state_->history;
  to.bind(++state_->changes).bind(catalogue_id_text(record.hist_id)).bind(record.hist_clone);
  to.bind(record.operation).bind(record.timestamp).bind(record.user).bind(record.property);
  to.bind(record.oldvalue).bind(record.newvalue).bind(record.validity);
  to.bind(history.client).bind(history.name).bind(catalogue_id_text(history.clientid)).run();
}

bool catalogue_writer::close(std::string &why) {
  bool done =
      state_->good() && sqlite3_exec(state_->db, "COMMIT", nullptr, nullptr, nullptr) == SQLITE_OK;
  if (!done) why = sqlite3_errmsg(state_->db);
  return done;
}

}  // namespace qvr
