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

// Any thread, once opened.
class lab_sessions {
 public:
  lab_sessions() = default;
  ~lab_sessions();
  lab_sessions(const lab_sessions &) = delete;
  lab_sessions &operator=(const lab_sessions &) = delete;

  // Makes the private directory that the files go to. False with the reason in `why`.
  bool open(std::uint32_t qop, std::string &why);
  // Removes it with all that is in it.
  void close();

  // A new session for the claimed user: the record, its file, a challenge. An error object or null.
  errobj_t *make(const gss_user_identity &user, session_record &record, std::string &path,
                 std::string &challenge);
  // Once the claimant has proved itself, or gave up, nobody has to read the file again.
  void drop_file(const std::string &path);
  errobj_t *find(std::uint64_t session, session_record &record) const;

 private:
  errobj_t *write_file(const session_record &record, const std::string &user, std::string &path);

  std::uint32_t qop_ = 0;
  std::string directory_;
  mutable std::mutex mutex_;  // guards what follows
  std::map<std::uint64_t, session_record> sessions_;
  std::uint64_t files_ = 0;
};

}  // namespace qvr
