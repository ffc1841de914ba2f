// Save sets of a range, of times and of identifiers, out of record files.
#include <algorithm>

#include "debug_words.h"
#include "ss_flags.h"
#include "storage_load.h"
#include "storage_session.h"
#include "storage_walk.h"

namespace qvr {

namespace {

constexpr std::uint32_t FLAG_INCOMPLETE = 0x10000;
constexpr std::uint32_t FLAG_COVER = 0x2000000;
constexpr std::uint32_t FLAG_SNAP = 0x4000000;
constexpr std::size_t CLIENT_MAX = 256;

bool is_being_written(const errobj_t &error) {
  return error.code >= 50000 && error.code <= 59999 && error.code % 1000 == 1;
}

bool is_client_of(const cat_session &session, std::string_view client) {
  return storage_client_name(client.substr(0, CLIENT_MAX)) == session.client();
}

// Whether the limit is reached. What is no number of records is no limit, as with a server.
bool is_full(const mr_range &mr, std::int64_t count) {
  return mr.mr_count > 0 && count >= mr.mr_count;
}

void report_index_inconsistency(cat_session &session, std::int64_t time, const std::string &path,
                                const errobj_t &error) {
  std::string text = std::to_string(time);
  KS_DEBUG(1, "Detected an inconsistency in the index record '%s' with save time '%s'.\n",
           path.c_str(), text.c_str());
  KS_DEBUG(1,
           "report_index_inconsistency: loading of '%s' with save time '%s' failed with error: "
           "%s\n",
           path.c_str(), text.c_str(), error.text.c_str());
  session.inconsistent = true;
}

// One pass over one layout.
struct pass_t {
  cat_session &session;
  std::string_view ssname;
  const attrlist &filter;
  const mr_range &mr;
  storage_layout layout;
  storage_paths paths;
  bool uncommitted;
  memory_database memory{};
  std::shared_ptr<arena> page = std::make_shared<arena>();
  std::string save_file_name{};

  ss_t *minimal_record(std::int64_t time) {
    ss_t *record = page->make<ss_t>();
    record->client = page->copy(session.client());
    record->savetime = time;
    record->ssflags = FLAG_INCOMPLETE;
    return record;
  }

  ss_t *cloud_record(const rec_candidate &candidate) {
    ss_t *record = page->make<ss_t>();
    record->savetime = candidate.rc_time;
    record->ssflags = FLAG_COVER;
    set_record_attr(*page, *record, "record file name", candidate.rc_path);
    return record;
  }

  // Null without an error: the candidate gives no record.
  errobj_t *record_of(const rec_candidate &candidate, ss_t *&record) {
    record = nullptr;
    save_file_name.clear();
    if (layout == storage_layout::second && candidate.rc_incomplete) {
      if (uncommitted) record = minimal_record(candidate.rc_time);
      return nullptr;
    }
    const errobj_t *error =
        load_record(session, memory, candidate.rc_path, layout == storage_layout::first);
    if (error == nullptr) return look_up(candidate, record);
    if (is_being_written(*error))
      record = minimal_record(candidate.rc_time);
    else if (storage_is_on_cloud_tier(error))
      record = cloud_record(candidate);
    else
      report_index_inconsistency(session, candidate.rc_time, candidate.rc_path, *error);
    return nullptr;
  }

  errobj_t *look_up(const rec_candidate &candidate, ss_t *&record) {
    if (errobj_t *error =
            lookup_ss_db(memory, ssname, candidate.rc_time, candidate.rc_path, *page, record))
      return error;
    bool named = idx_appid() == 19 || idx_appid() == 25;
    return uncommitted && named ? lookup_file_name(memory, save_file_name) : nullptr;
  }

  bool is_record_filtered(const ss_t &record) const {
    if (filter.empty() || record.attrs.empty()) return false;
    for (const attr_t &attr : filter) {
      if (attr_name_equal(attr.name, "fetch snapshots only") ? (record.ssflags & FLAG_SNAP) != 0
                                                             : shares_value(record, attr))
        continue;
      if (debug_on(9))
        KS_DEBUG(9,
                 "m_iface_bh::is_record_filtered: no match for ssname '%s', savetime '%s', "
                 "attrname '%s', attrvalue '%s'\n",
                 std::string(record.name).c_str(), std::to_string(record.savetime).c_str(),
                 attr.name.c_str(), attr.values.empty() ? "" : attr.values.front().c_str());
      return true;
    }
    return false;
  }

  static bool shares_value(const ss_t &record, const attr_t &attr) {
    packed_attrs::values_t values = packed_attrs::no_values();
    if (!record.attrs.find(attr.name, values)) return false;
    std::string_view value;
    while (values.next(value))
      if (attr_has(attr, value)) return true;
    return false;
  }

  errobj_t *add_subspace_to_ss(const std::string &path, ss_t &record) {
    if (layout == storage_layout::second)
      set_record_attr(*page, record, "index record version", "2.0");
    std::string subspace;
    if (errobj_t *error = paths.subspace_of(layout, path, &subspace)) return error;
    if (!subspace.empty()) set_record_attr(*page, record, "index subspace", subspace);
    subspace = record.attrs.first("index subspace");
    if (attrlist_has(session.attributes, "index get tier location for record", "Yes") &&
        record.ssflags != FLAG_INCOMPLETE) {
      int state = 0;
      std::string stub = paths.data_stub(layout, subspace, record.savetime);
      if (errobj_t *error = session.connection->tier(stub, state)) return error;
      set_record_attr(*page, record, "index record cloud tier location",
                      state == STORAGE_TIER_CLOUD ? "True" : "False");
    }
    if (!save_file_name.empty())
      set_record_attr(*page, record, "save file name",
                      paths.save_file(layout, subspace, save_file_name));
    return nullptr;
  }

  // Whether the record stays in the result.
  bool finish(const rec_candidate &candidate, ss_t &record) {
    if (is_record_filtered(record)) {
      if (debug_on(9))
        KS_DEBUG(9, "m_iface_bh::get_ss_lst: filtered ssname '%s', savetime '%s', filename '%s'\n",
                 std::string(record.name).c_str(), std::to_string(record.savetime).c_str(),
                 candidate.rc_path.c_str());
      return false;
    }
    const errobj_t *error = add_subspace_to_ss(candidate.rc_path, record);
    if (error == nullptr) return true;
    KS_DEBUG(1, "bh_fetchss_range: add_subspace_to_ss for ('%s', '%s') failed: '%s'\n",
             candidate.rc_path.c_str(), std::to_string(record.savetime).c_str(),
             error->text.c_str());
    return false;
  }

  // Gathers the newest first.
  errobj_t *run(std::vector<ss_t *> &found, std::int64_t count) {
    rec_candidates candidates;
    if (errobj_t *error = find_candidates(session, mr, layout, uncommitted, candidates))
      return error;
    if (errobj_t *error = memory.open()) return error;
    for (const auto &[time, candidate] : candidates) {
      auto seconds = static_cast<std::uint64_t>(time);
      if (layout == storage_layout::first &&
          (seconds < mr.mr_start_time || seconds > mr.mr_end_time))
        continue;
      ss_t *record = nullptr;
      if (errobj_t *error = record_of(candidate, record)) return error;
      if (record == nullptr || !finish(candidate, *record)) continue;
      found.push_back(record);
      count++;
      if (is_full(mr, count)) break;
    }
    return nullptr;
  }
};

errobj_t *get_ss_lst(cat_session &session, std::string_view ssname, const attrlist &filter_attrs,
                     const mr_range &mr, storage_layout layout, ss_list &list,
                     std::int64_t &count) {
  pass_t pass{session,
              ssname,
              filter_attrs,
              mr,
              layout,
              session.paths(),
              attrlist_has(session.attributes, "index enable get uncommitted rec", "True")};
  std::vector<ss_t *> found;
  errobj_t *error = pass.run(found, count);
  // Each record goes to the head of the list, the newest first of all.
  std::reverse(found.begin(), found.end());
  count += static_cast<std::int64_t>(found.size());
  if (!found.empty()) list.pages.push_back(std::move(pass.page));
  list.rows.insert(list.rows.begin(), found.begin(), found.end());
  return error;
}

errobj_t *range_lists(cat_session &session, std::string_view client, std::string_view ssname,
                      const attrlist &filter_attrs, const mr_range *mr, ss_list &list) {
  if (mr == nullptr)
    return err_create(
        149183, 55000,
        "The '%s' range parameter was not specified for this Bulk Harbor query session.\n",
        {{MSG_ARG_ATTR, "Server independent device path"}});
  if (!is_client_of(session, client))
    return err_create(149184, 55000,
                      "The '%s' client host name parameter was specified incorrectly for this "
                      "Bulk Harbor range query session.\n",
                      {{MSG_ARG_HOST, client}});
  std::int64_t count = 0;
  if (errobj_t *error =
          get_ss_lst(session, ssname, filter_attrs, *mr, storage_layout::second, list, count))
    return error;
  if (is_full(*mr, count)) return nullptr;
  errobj_t *error =
      get_ss_lst(session, ssname, filter_attrs, *mr, storage_layout::first, list, count);
  if (error == nullptr || list.empty()) return error;
  KS_DEBUG(1, "m_iface_bh::bh_fetchss_range: %d returning not fatal error %s\n", __LINE__,
           error->text.c_str());
  return nullptr;
}

// By one save time.
struct time_lookup_t {
  cat_session &session;
  std::string_view client;
  memory_database &memory;
  std::shared_ptr<arena> page;

  void look_up(std::int64_t time, const std::string &path, ss_list &found) {
    ss_t *record = nullptr;
    const errobj_t *error = lookup_ss_db(memory, {}, time, path, *page, record);
    if (error != nullptr)
      KS_DEBUG(1, "bh_fetchss_times: lookup_ss_db for (%s) failed: %s\n", path.c_str(),
               error->text.c_str());
    else if (record != nullptr)
      found.rows.push_back(record);
  }

  static void log_load(const std::string &path, const errobj_t &error) {
    KS_DEBUG(1, "lookup_index_eq: loading of '%s' failed with error: %s\n", path.c_str(),
             error.text.c_str());
  }

  ss_list by_range(std::int64_t time) {
    auto at = static_cast<std::uint64_t>(time);
    mr_range range{at, at, 1};
    ss_reply reply = bh_fetchss_range(&session, client, {}, {}, &range);
    if (reply.status != MMDB_LOCAL_ERROR) return std::move(reply.list);
    KS_DEBUG(1, "bh_get_ss_by_ts: retrieving of savetime '%s' failed with error: '%s'.\n",
             std::to_string(time).c_str(), reply.error != nullptr ? reply.error->text.c_str() : "");
    return {};
  }

  errobj_t *lookup_index_eq(std::int64_t time, ss_list &found) {
    std::string path;
    if (errobj_t *error = find_record_path(session, time, path)) return error;
    const errobj_t *error = load_record(session, memory, path, false);
    if (storage_is_missing(error)) {
      log_load(path, *error);
      if (!session.subspace().empty()) {
        found = by_range(time);
        return nullptr;
      }
      path = session.paths().record_file(storage_layout::first, {}, time);
      error = load_record(session, memory, path, true);
      if (storage_is_missing(error)) {
        log_load(path, *error);
        return nullptr;
      }
    }
    if (error != nullptr)
      report_index_inconsistency(session, time, path, *error);
    else
      look_up(time, path, found);
    return nullptr;
  }
};

errobj_t *times_list(cat_session &session, std::string_view client,
                     std::span<const std::int64_t> times, ss_list &list) {
  if (!is_client_of(session, client))
    return err_create(149185, 55000,
                      "The '%s' client host name parameter was specified incorrectly for this "
                      "Bulk Harbor time query session.\n",
                      {{MSG_ARG_HOST, client}});
  memory_database memory;
  if (errobj_t *error = memory.open()) return error;
  std::string subspace = session.subspace();
  time_lookup_t lookup{session, client, memory, std::make_shared<arena>()};
  list.pages.push_back(lookup.page);
  for (std::int64_t time : times) {
    ss_list found;
    if (errobj_t *error = lookup.lookup_index_eq(time, found)) return error;
    for (ss_t *record : found.rows) {
      if (!subspace.empty()) set_record_attr(*lookup.page, *record, "index subspace", subspace);
    }
    list.append(std::move(found));
  }
  // Each went to the head.
  std::reverse(list.rows.begin(), list.rows.end());
  return nullptr;
}

}  // namespace

ss_reply bh_fetchss_range(cat_session *session, std::string_view client, std::string_view ssname,
                          const attrlist &filter_attrs, const mr_range *mr) {
  ss_reply reply;
  reply.status = MMDB_LOCAL_ERROR;
  if (session == nullptr) return reply;
  reply.error = range_lists(*session, client, ssname, filter_attrs, mr, reply.list);
  if (reply.error != nullptr) {
    KS_DEBUG(1, "m_iface_bh::bh_fetchss_range: %d returning error %s\n", __LINE__,
             reply.error->text.c_str());
    reply.list.clear();
    return reply;
  }
  reply.status = reply.list.empty() ? MMDB_NO_ENTRY : MMDB_OK;
  return reply;
}

ss_list bh_fetchss_times(cat_session *session, std::string_view client,
                         std::span<const std::int64_t> times) {
  ss_list list;
  if (session == nullptr) return list;
  if (const errobj_t *error = times_list(*session, client, times, list)) {
    KS_DEBUG(1, "m_iface_bh::bh_fetchss_times: failed with error : %s.\n", error->text.c_str());
    list.clear();
  }
  return list;
}

ss_list bh_fetchss_ids(cat_session *session, std::span<const ksui> ids) {
  if (session == nullptr) return {};
  std::vector<std::int64_t> times;
  for (const ksui &id : ids)
    times.push_back(
        static_cast<std::int64_t>(std::uint64_t{id.word(1)} << 32 | std::uint64_t{id.word(3)}));
  return bh_fetchss_times(session, session->client(), times);
}

}  // namespace qvr
