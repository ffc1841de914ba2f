// A session on the catalogue that lies on storage: save sets from record files, with no server.
#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <string_view>

#include "attrlist.h"
#include "mif_catalogue.h"
#include "storage_library.h"
#include "storage_paths.h"

namespace qvr {

// The handle that a session keeps. Belongs to one thread's session.
struct cat_session {
  std::shared_ptr<storage_library> library;
  storage_params params;
  std::unique_ptr<storage_connection> connection;
  attrlist attributes;        // "auth index" in lower case
  bool inconsistent = false;  // a record could not be read; never cleared here

  // The client whose records are read.
  std::string client() const;
  std::string subspace() const;
  storage_paths paths() const;
};

// Opens a session from its attributes. On an error `session` stays null.
errobj_t *clntbh_create_client_handle(const attrlist &attrs, std::unique_ptr<cat_session> &session);

// Save sets of a range, newest kept when there is a limit, oldest first in the list: MMDB_OK with a
// list, MMDB_NO_ENTRY without one, MMDB_LOCAL_ERROR with the error in the thread's ring. A null
// session gives MMDB_LOCAL_ERROR without one.
ss_reply bh_fetchss_range(cat_session *session, std::string_view client, std::string_view ssname,
                          const attrlist &filter_attrs, const mr_range *mr);
// Save sets by save time, the last time's first. Empty on any error, which is logged.
ss_list bh_fetchss_times(cat_session *session, std::string_view client,
                         std::span<const std::int64_t> times);
// The same of the times that the identifiers hold, for the client of the session.
ss_list bh_fetchss_ids(cat_session *session, std::span<const ksui> ids);

// Opens the catalogue for a session of the media database.
errobj_t *storage_open_catalogue(const attrlist &attrs, std::unique_ptr<mif_catalogue> &catalogue);

// Which application's records the calling thread reads. 0 until it is set.
std::int64_t idx_appid();
void idx_set_appid(std::int64_t appid);

// The routine that gives the clear value of a hidden one, with its key; null goes back to the
// default: exclusive or with the key over the bytes that the hexadecimal text stands for. A text
// that is not hexadecimal is taken as it is. While no session is being opened.
using storage_unhide_fn = std::string (*)(std::string_view stored, std::string_view key);
void storage_set_unhide(storage_unhide_fn unhide);
// The stored form that the default routine undoes.
std::string storage_hide(std::string_view clear);

// The process-wide lock of loading; null when the backend could not start. Made at the first use.
struct KSMutex;
KSMutex *storage_load_lock();

}  // namespace qvr
