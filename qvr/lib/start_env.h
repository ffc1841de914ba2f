// What the start of a client program needs of the world around it. Tests give their own.
#pragma once

#include <string>

#include "errobj.h"
#include "resdb.h"

namespace qvr {

class start_env_t {
 public:
  virtual ~start_env_t() = default;
  // One attempt to open the resource database of qvrexecd on `host`; `own` says that this machine
  // has that name. An error object or null; with an error, `not_yet` tells that the daemon is not
  // there yet: its port refused, or the program is not registered.
  virtual errobj_t *open_execd(const std::string &host, bool own, resdb_ptr &handle, bool &not_yet);
  // The resource database of this host.
  virtual errobj_t *open_local(resdb_ptr &handle);
  virtual void sleep_seconds(unsigned seconds);
  // Fetches the session ticket or the user's token.
  virtual void start_session();
};

// The process's; null goes back to the real one. While nothing starts.
void set_start_env(start_env_t *env);
start_env_t &start_env();

}  // namespace qvr
