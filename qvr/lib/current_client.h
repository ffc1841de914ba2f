// The client whose resource this thread looked at last. All of it belongs to the calling thread.
#pragma once

#include <string>
#include <string_view>

#include "attrlist.h"
#include "ksui.h"
#include "resdb.h"

namespace qvr {

struct cc_t {
  std::string cc_name;
  std::string cc_index_path;   // of the resource, or made from the client name
  bool cc_path_final = false;  // it has been resolved to a real path
  std::string cc_os_type;
  vallist cc_aliases;
  std::string cc_server;  // asked for the resource
  resdb_ptr cc_rap_own;   // opened here
  resdb_t *cc_rap = nullptr;
  bool cc_rap_given = false;  // by a caller: never closed here
  ksui cc_clientid;           // of cc_name when known, else null
};
cc_t &cc_get();

// Makes a handle of the caller's the thread's; null takes it back.
void cc_set_rap(resdb_t *handle);
// Changes the server whose resources are asked and closes a handle that was opened here. Without
// effect while a given handle is set.
void cc_set_server(std::string_view name);
// The name ("localhost" means this host) is the current client's, or one of its aliases.
bool cc_is_current(std::string_view name);
// Loads the resource of the client with `attribute` equal to the name; `id` (may be null) becomes
// its client id.
void cc_load(std::string_view name, std::string_view attribute, const ksui &id = {});
// The same by name, unless the client is the current one.
void cc_load_by_name(std::string_view name, const ksui &id = {});

// Where the client's file index lies; with `resolve` as a real path. Empty when it has none.
std::string index_path_of(std::string_view client, bool resolve);
// The "index" directory of the installation and the name in lower case.
std::string index_path_default(std::string_view client);
// The client that an index path stands for; empty when none does.
std::string index_path_client(std::string_view path);

// The host that serves this installation, worked out once. Any thread.
std::string qvr_getserverhost();

}  // namespace qvr
