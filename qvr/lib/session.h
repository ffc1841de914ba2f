// The media database session of the calling thread. Every thread has its own: connection, caches
// and last error; nothing in it is shared.
#pragma once

#include <string_view>

#include "errobj.h"

namespace qvr {

inline constexpr int MIF_CONNECTED = 6;

void mif_set_noretry(bool flag);
// A null text (data() == nullptr) closes the session.
void mif_set_server(std::string_view name);
// MIF_CONNECTED, or -1 with the reason in mif_last_error().
int mif_connect();
// A copy of the session's last error, in the thread's ring; null when there is none.
errobj_t *mif_last_error();
void mif_clear_error();
void mif_store_error(const errobj_t *error);
void mif_close();
void mif_reset();

}  // namespace qvr
