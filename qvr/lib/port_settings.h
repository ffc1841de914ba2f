// The port ranges of this installation, from its resources or from a parent process's environment.
#pragma once

#include "attrlist.h"
#include "errobj.h"
#include "resdb.h"

namespace qvr {

inline constexpr const char *SERVICE_PORTS_VARIABLE = "QVRENV_RPCPORT_SERVICE";
inline constexpr const char *CONNECTION_PORTS_VARIABLE = "QVRENV_RPCPORT_CONNECTION";

// Reads the resource of type "QVR system port ranges" and puts its ranges in place of those that
// stood; exports them to the environment, so main thread only. Values that are no ranges are told
// and skipped; so is a missing resource or attribute (4200), which leaves the system to choose
// ports. An error object or null.
errobj_t *port_settings_read(resdb_t *handle);

// The same from two lists of ranges with "," between them, as the export writes them; a null or
// empty one is an error (4200).
errobj_t *qvrports_init_from_env(const char *service, const char *connection);

// Takes "<id>:<port>" into the excluded ports. An error object or null.
errobj_t *port_exclude_text(std::string_view text);

}  // namespace qvr
