// Which client does a name mean, are two names one client, what is its id.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "attrlist.h"
#include "errobj.h"
#include "ksui.h"
#include "records.h"
#include "resdb.h"

namespace qvr {

// The process-wide resource handle of the server, borrowed; null withdraws it. Main thread, while
// no worker runs.
void set_client_rap(resdb_t *handle);

// How names are judged to be one client: by the cache and the resource database, or by the cache
// alone.
enum client_cache_mode : int { CLIENT_CACHE_AND_RESOURCES = 0, CLIENT_CACHE_ALONE = 1 };
void set_client_cache_mode(client_cache_mode mode);

// The canonical client name; empty when the name is not known anywhere. "localhost" means this
// host. Any thread.
std::string get_client_by_name(std::string_view name);

// True once the resource database or the map of client identifiers has failed in a look-up, which
// the caller of that look-up prints: what was not found may be known all the same. Any thread.
bool client_lookups_failed();
void note_client_lookup_failure();

// Whether two names mean one client. Each answer is remembered for the run. Any thread.
bool same_client(std::string_view a, std::string_view b);
// Whether a list of names has one that is equal to `name` or means the same client.
bool client_in_list(const vallist &list, std::string_view name);

// The client id map of the media database, on the calling thread's session. Either half asks for
// the other: a null id and a name, or an id and no name. No entry and no error: no mapping.
errobj_t *clidmap_lookup(const ksui &id, std::string_view name, std::optional<clidmap> &entry);

// The client's id: of the current client, of the text when it is one, or by the client id map.
// False, with an error printed, when that fails; the id is then null.
bool client_id_of(std::string_view name, ksui &id);
// The long text of the client's id; empty when it has none. A text that is a client id already
// comes back unchanged.
std::string client_id_text(std::string_view name);
// The name that the media database has for a client id.
errobj_t *get_client_name_from_id(const ksui &id, std::string &name);

// True for a save set name that names the file index of a client: "index:%s" or "<%d>index:%s".
bool is_index_name(std::string_view name);
// "index:%s" with the text of client_id_text; empty when there is none.
std::string index_name_for(std::string_view client);
// The name with its client as a client id; a copy when that can't be had. No name gives no name.
std::string index_name_to_id(std::string_view name);
// The name with its client id as the client's name; a copy when nothing can be translated, or empty
// with `strict`.
std::string index_name_to_client(std::string_view name, bool strict);

}  // namespace qvr
