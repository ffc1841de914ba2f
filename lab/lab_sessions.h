// The sessions of the lab's authentication service: keys that it hands to users in files that only
// they can read, and by which the daemons of the installation know them again.
#pragma once

#include <cstdint>
#include <map>
#include <mutex>
#include <string>

#include "errobj.h"
#include "gss_tokens.h"
#include "session_record.h"

namespace qvr {

// Any thread, once opened. A file and its directory live until drop_file.
class lab_sessions {
 public:
  // Sessions get keys of this quality of protection, 0: the best. False when there is none such,
  // with the reason in `why`.
  bool open(std::uint32_t qop, std::string &why);

  // A new session for the claimed user: the record, its file in a private directory of its own, a
  // challenge. An error object or null.
  errobj_t *make(const gss_user_identity &user, session_record &record, std::string &path,
                 std::string &challenge);
  // Once the claimant has proved itself, or gave up, nobody has to read the file again.
  static void drop_file(const std::string &path);
  errobj_t *find(std::uint64_t session, session_record &record) const;

 private:
  std::uint32_t qop_ = 0;
  mutable std::mutex mutex_;  // guards what follows
  std::map<std::uint64_t, session_record> sessions_;
};

}  // namespace qvr
