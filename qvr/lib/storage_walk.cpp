#include "storage_walk.h"

#include <cerrno>
#include <vector>

#include "debug_words.h"
#include "err_class.h"

namespace qvr {

namespace {

// Directories of 10000 seconds: highest bucket first, equal ones by path in descending order.
struct ts10k_order {
  using key = std::pair<std::int64_t, std::string>;
  bool operator()(const key &a, const key &b) const { return b < a; }
};
using ts10k_list = std::map<ts10k_order::key, bool, ts10k_order>;

struct bounds_t {
  std::uint64_t low, high;
  bool holds(std::int64_t value) const {
    return static_cast<std::uint64_t>(value) >= low && static_cast<std::uint64_t>(value) <= high;
  }
};

bool is_dots(std::string_view name) {
  return name == "." || name == "..";
}

errobj_t *too_deep(const std::string &directory) {
  return err_from_text(
      ERR_SYSTEM, ELOOP,
      directory + ": more than " + std::to_string(STORAGE_WALK_DEPTH) + " directories deep");
}

// Calls `each` with every name of an open directory until it answers with an error.
template <class Each>
errobj_t *scan(storage_directory &directory, Each each) {
  std::string name;
  bool end = false;
  for (;;) {
    if (errobj_t *error = directory.next(name, end)) return error;
    if (end) return nullptr;
    if (is_dots(name)) continue;
    if (errobj_t *error = each(name)) return error;
  }
}

errobj_t *add_ts10k_to_list(const std::string &directory, const std::string &name,
                            const bounds_t &bounds, ts10k_list &list) {
  std::int64_t bucket = 0;
  if (errobj_t *error =
          storage_name_time(std::string_view(name).substr(TS10K_PREFIX.size()), bucket))
    return error;
  if (!bounds.holds(bucket)) return nullptr;
  auto [at, added] = list.emplace(ts10k_order::key(bucket, directory + '/' + name), true);
  if (added) return nullptr;
  KS_DEBUG(1, "add_ts10k_to_list: file '%s' already exists '%s' in directory '%s'.\n", name.c_str(),
           at->first.second.c_str(), directory.c_str());
  return err_create(149180, 55000,
                    "Unable to decode metadata directory '%s' due an unexpected entry '%s'.\n",
                    {{MSG_ARG_PATH, directory}, {MSG_ARG_PATH, name}});
}

errobj_t *bh_get_ts10k_dir_entries(storage_connection &connection, const std::string &directory,
                                   const bounds_t &bounds, int depth, ts10k_list &list) {
  if (depth >= STORAGE_WALK_DEPTH) return too_deep(directory);
  std::unique_ptr<storage_directory> opened;
  if (errobj_t *error = connection.open_directory(directory, opened)) {
    if (!storage_is_missing(error)) return error;
    KS_DEBUG(1, "bh_get_ts10k_dir_entries: opening directory '%s' failed with error: %s\n",
             directory.c_str(), error->text.c_str());
    return nullptr;
  }
  std::vector<std::string> below;
  errobj_t *error = scan(*opened, [&](const std::string &name) -> errobj_t * {
    if (name.starts_with(TS10K_PREFIX)) return add_ts10k_to_list(directory, name, bounds, list);
    below.push_back(directory + '/' + name);
    return nullptr;
  });
  opened.reset();
  for (std::size_t i = 0; error == nullptr && i < below.size(); i++)
    error = bh_get_ts10k_dir_entries(connection, below[i], bounds, depth + 1, list);
  return error;
}

errobj_t *add_rec_to_list(const std::string &directory, const std::string &name, std::int64_t time,
                          rec_candidates &list) {
  bool marker = name.ends_with(LCK_SUFFIX);
  auto [at, added] = list.emplace(time, rec_candidate{time, directory + '/' + name, marker, false});
  if (added) return nullptr;
  rec_candidate &there = at->second;
  KS_DEBUG(1, "add_rec_to_list: file '%s' already exists '%s' in directory '%s'.\n", name.c_str(),
           there.rc_path.c_str(), directory.c_str());
  if (marker != there.rc_path.ends_with(LCK_SUFFIX)) {
    there.rc_incomplete = true;
    return nullptr;
  }
  return err_create(149179, 55000, "Unable to decode metadata '%s' due an unexpected entry '%s'.\n",
                    {{MSG_ARG_PATH, there.rc_path}, {MSG_ARG_PATH, name}});
}

bool is_rec_in_range2(const std::string &name, const bounds_t &range, std::int64_t &time) {
  if (const errobj_t *error = storage_name_time(name, time)) {
    KS_DEBUG(1, "is_rec_in_range2: processing rec '%s' error: '%s'", name.c_str(),
             error->text.c_str());
    return false;
  }
  return range.holds(time);
}

errobj_t *bh_get_dir_rec_entries_range(storage_connection &connection, const std::string &directory,
                                       const bounds_t &range, rec_candidates &list) {
  std::unique_ptr<storage_directory> opened;
  if (errobj_t *error = connection.open_directory(directory, opened)) return error;
  return scan(*opened, [&](const std::string &name) -> errobj_t * {
    std::int64_t time = 0;
    if (!is_rec_in_range2(name, range, time)) return nullptr;
    if (name.ends_with(LCK_SUFFIX)) {
      KS_DEBUG(1, "bh_get_dir_rec_entries_range: incomplete record found '%s/%s'.\n",
               directory.c_str(), name.c_str());
    } else if (!name.ends_with(REC_SUFFIX)) {
      KS_DEBUG(1, "bh_get_dir_rec_entries_range: unexpected file type '%s/%s'.\n",
               directory.c_str(), name.c_str());
      return nullptr;
    }
    return add_rec_to_list(directory, name, time, list);
  });
}

// The walk of the first layout.
struct walk_v1_t {
  storage_connection &connection;
  rec_candidates &list;
  bool uncommitted;

  errobj_t *add(const std::string &path, const std::string &name, bool incomplete) {
    std::int64_t time = 0;
    if (errobj_t *error = storage_name_time(name, time)) return error;
    auto [at, added] = list.emplace(time, rec_candidate{time, path, incomplete, true});
    if (added) return nullptr;
    return err_create(149181, 55000,
                      "Unable to decode metadata record '%s' due an unexpected entry '%s'.\n",
                      {{MSG_ARG_PATH, at->second.rc_path}, {MSG_ARG_PATH, path}});
  }

  errobj_t *entry(const std::string &directory, const std::string &name, int depth) {
    std::string path = directory + '/' + name;
    if (uncommitted && name.ends_with(LCK_SUFFIX)) {
      path.resize(path.size() - LCK_SUFFIX.size());
      bool there = false;
      if (errobj_t *error = storage_exists(connection, path, there)) return error;
      return there ? nullptr : add(path, name, true);
    }
    if (name.ends_with(LCK_SUFFIX) || name.ends_with(SS_SUFFIX) || name == "2.0" || name == "keys")
      return nullptr;
    if (name.ends_with(REC_SUFFIX)) return add(path, name, false);
    if (const errobj_t *error = get_dir_entries_v1(path, depth + 1))
      KS_DEBUG(1, "get_dir_entries_v1: reading directory '%s' failed: %s\n", path.c_str(),
               error->text.c_str());
    return nullptr;
  }

  errobj_t *get_dir_entries_v1(const std::string &directory, int depth) {
    if (depth >= STORAGE_WALK_DEPTH) return too_deep(directory);
    std::unique_ptr<storage_directory> opened;
    if (errobj_t *error = connection.open_directory(directory, opened)) {
      if (!storage_is_missing(error)) return error;
      KS_DEBUG(1, "get_dir_entries_v1: directory '%s' was not found, err = '%s'\n",
               directory.c_str(), error->text.c_str());
      return nullptr;
    }
    return scan(*opened, [&](const std::string &name) { return entry(directory, name, depth); });
  }
};

errobj_t *single_time(const cat_session &session, std::int64_t time, storage_layout layout,
                      rec_candidates &list) {
  rec_candidate found;
  found.rc_time = time;
  if (layout == storage_layout::first) {
    found.rc_first_layout = true;
    found.rc_path = session.paths().record_file(layout, session.subspace(), time);
  } else {
    if (errobj_t *error = find_record_path(session, time, found.rc_path)) return error;
    if (errobj_t *error = storage_exists(
            *session.connection, found.rc_path + std::string(LCK_SUFFIX), found.rc_incomplete))
      return error;
  }
  list.emplace(time, std::move(found));
  return nullptr;
}

}  // namespace

errobj_t *find_record_path(const cat_session &session, std::int64_t time, std::string &path) {
  storage_paths paths = session.paths();
  std::string subspace = session.subspace();
  path = paths.record_file(storage_layout::second, subspace, time);
  const attr_t *others = attrlist_find(session.attributes, "mmdb bh subspaces");
  if (others == nullptr || others->values.empty()) return nullptr;
  bool there = false;
  errobj_t *error = storage_exists(*session.connection, path, there);
  for (const std::string &value : others->values) {
    if (error != nullptr || there) break;
    std::string below = subspace.empty() ? value : subspace + '/' + value;
    path = paths.record_file(storage_layout::second, below, time);
    error = storage_exists(*session.connection, path, there);
  }
  return error;
}

errobj_t *find_candidates(const cat_session &session, const mr_range &mr, storage_layout layout,
                          bool uncommitted, rec_candidates &list) {
  bool nested = attrlist_has(session.attributes, "index subspace lookup nested", "True");
  if (mr.mr_start_time == mr.mr_end_time && !nested)
    return single_time(session, static_cast<std::int64_t>(mr.mr_start_time), layout, list);
  storage_paths paths = session.paths();
  std::string subspace = session.subspace();
  if (layout == storage_layout::first) {
    bool whole = nested || !subspace.empty();
    walk_v1_t walk{*session.connection, list, uncommitted};
    return walk.get_dir_entries_v1(
        whole ? paths.base(layout, subspace) : paths.records(layout, subspace), 0);
  }
  ts10k_list directories;
  bounds_t buckets{mr.mr_start_time / TS10K_SECONDS, mr.mr_end_time / TS10K_SECONDS};
  if (errobj_t *error = bh_get_ts10k_dir_entries(
          *session.connection, paths.records(layout, subspace), buckets, 0, directories))
    return error;
  for (const auto &[key, present] : directories) {
    if (errobj_t *error = bh_get_dir_rec_entries_range(*session.connection, key.second,
                                                       {mr.mr_start_time, mr.mr_end_time}, list))
      return error;
  }
  return nullptr;
}

}  // namespace qvr
