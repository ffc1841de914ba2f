// Which client does a name mean, are two names one client, what is its id.
#pragma once

#include <string>
#include <string_view>

#include "errobj.h"
#include "ksui.h"
#include "resdb.h"

namespace qvr {

// The process-wide resource handle of the server, borrowed; null withdraws it. Main thread, while
// no worker runs.
void set_client_rap(resdb_t *handle);

// The canonical client name; empty when the name is not known anywhere.
std::string get_client_by_name(std::string_view name);
bool same_client(std::string_view a, std::string_view b);
// The name that the media database has for a client id.
errobj_t *get_client_name_from_id(const ksui &id, std::string &name);
std::string index_name_to_id(std::string_view name);
// Empty when nothing can be translated and `strict` is set.
std::string index_name_to_client(std::string_view name, bool strict);

}  // namespace qvr
