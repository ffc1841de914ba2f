// The media database session of the calling thread. Every thread has its own: connection, caches
// and last error; nothing in it is shared, and no operation here may be called for another
// thread's.
#pragma once

#include <cstdint>
#include <string_view>

#include "attrlist.h"
#include "errobj.h"

namespace qvr {

inline constexpr int MIF_CONNECTED = 6;

// When set, connecting gives up after the first failure.
void mif_set_noretry(bool flag);
// Names the server. A connection stays when the new name means the same host. A null text
// (data() == nullptr) closes the session.
void mif_set_server(std::string_view name);
// MIF_CONNECTED, or -1 with the reason in mif_last_error(). Clears the last error; a session that
// is connected causes no traffic.
int mif_connect();
// A copy of the session's last error, in the thread's ring; null when there is none.
errobj_t *mif_last_error();
void mif_clear_error();
// Replaces the last error by a copy; null clears it.
void mif_store_error(const errobj_t *error);
// Closes the connection if there is one.
void mif_close();
// Closes the connection, forgets the server and the parameters of storage, empties the caches and
// clears the error.
void mif_reset();

// Whether names of save sets in replies go through the translation of index names. Returns the
// setting; with `set` it becomes `value` first.
bool mif_set_clientid_names(bool set, bool value);
// Turns queries to the catalogue on storage with the parameters `attrs`, or back. A program that
// never does is linked without that catalogue and its database library.
void mif_use_storage(bool flag, const attrlist &attrs);
// With a catalogue on storage that is open: its subspace becomes "index subspace" of `attrs`, and
// the error is cleared. With one that is not: opens it from `attrs`. Without: connects. The result
// is as that of mif_connect().
int mif_set_index_subspace(const attrlist &attrs);

}  // namespace qvr
