// The settings of a host that start-up reads from its resource of type "QVRLA" and hands down.
#pragma once

#include <initializer_list>

#include "attrlist.h"
#include "errobj.h"
#include "resdb.h"

namespace qvr {

// Reads the first resource of a type with the attributes named. `found` is false when there is no
// such resource, which is no failure. An error object or null.
errobj_t *read_settings(resdb_t *handle, const char *type,
                        std::initializer_list<const char *> names, attrlist &attrs, bool &found);

// "Multi-subnet state" and "TCP Retry", for the transport.
errobj_t *read_multi_subnet(resdb_t *handle);
// "reverse DNS state", for the host layer.
errobj_t *read_reverse_dns(resdb_t *handle);
// "auth methods", "max auth attempts" and both DNS cache TTLs. `local`: the resources are this
// host's own, so that faulty methods are also told. A missing attribute is an error (86525); the
// others take effect all the same.
errobj_t *read_auth_settings(resdb_t *handle, bool local);
// "connection encrypted".
errobj_t *read_connection_encrypted(resdb_t *handle, bool &on);
// "runtime rendered log" of the "QVR log" resource: a number is a set of log mode bits; anything
// else leaves `mode` as it is.
errobj_t *read_rendered_log_mode(resdb_t *handle, std::uint32_t &mode);

}  // namespace qvr
