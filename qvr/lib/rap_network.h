// The resource database over the network, behind the face of resdb_t.
#pragma once

#include <memory>

#include "client.h"
#include "resdb.h"

namespace qvr {

// Takes over the client with its authentication and keeps a copy of the opening attributes.
resdb_ptr make_network_resdb(const attrlist &attrs, bool flag_a, bool flag_b,
                             std::unique_ptr<CLIENT> client);

}  // namespace qvr
