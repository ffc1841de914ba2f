// The SQLite file layer over a storage connection (SQLite VFS interface, version 1).
#pragma once

#include "errobj.h"
#include "storage_library.h"

namespace qvr {

inline constexpr char BHQUAY_NAME[] = "bhquay";
inline constexpr std::size_t BHQUAY_BUFFER = 65536;
inline constexpr int BHQUAY_PATH_MAX = 12288;

// What the file layer works on; one for the process, so that files are opened under the load lock.
// A file that is open goes on with what it was opened with.
struct bhquay_data_t {
  storage_connection *connection = nullptr;
  bool cache = true;  // reads go through a buffer of BHQUAY_BUFFER bytes
};

// Registers the layer, not as the default one. Any thread; SQLITE_OK or what SQLite says.
int bhquay_register();
// Sets the application data for the files that are opened from now on; null connection: none.
void bhquay_set_data(const bhquay_data_t &data);

// The storage error that the file layer left in the calling thread's slot, in the thread's ring;
// null when there is none. The slot is empty afterwards.
errobj_t *bhquay_take_error();

}  // namespace qvr
