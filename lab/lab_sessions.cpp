#include "lab_sessions.h"

#include <fcntl.h>
#include <openssl/rand.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <filesystem>

#include "auth_identity.h"
#include "gss_qop.h"
#include "gss_status.h"

namespace qvr {

namespace {

// A lab that runs for long forgets its oldest sessions.
constexpr std::size_t SESSIONS_MAX = 4096;
constexpr std::size_t CHALLENGE_SIZE = 32;

errobj_t *failed(const char *what) {
  return err_create(0, GSS_FAILED_CODE, "The lab's authentication service: %s",
                    {{MSG_ARG_TEXT, what}});
}

bool random_bytes(void *bytes, std::size_t size) {
  return RAND_bytes(static_cast<unsigned char *>(bytes), static_cast<int>(size)) == 1;
}

std::string own_user() {
  std::string name = system_identity().user_name(geteuid());
  return name.empty() ? "nobody" : name;
}

bool write_all(int fd, std::string_view bytes) {
  while (!bytes.empty()) {
    ssize_t put = write(fd, bytes.data(), bytes.size());
    if (put < 0 && errno == EINTR) continue;
    if (put <= 0) return false;
    bytes.remove_prefix(static_cast<std::size_t>(put));
  }
  return true;
}

}  // namespace

bool lab_sessions::open(std::uint32_t qop, std::string &why) {
  const qop_row *row = qop != 0 ? qop_find(qop) : gss_choose_qop(gss_supported_qops());
  if (row == nullptr) {
    why = "no such quality of protection: " + std::to_string(qop);
    return false;
  }
  qop_ = row->qop;
  return true;
}

namespace {

// A file of the user's own. Only root can make one for somebody else, and could not show it to him
// in a directory that is closed to him: the lab serves the user that runs it.
errobj_t *write_file(const session_record &record, const std::string &user, std::string &path) {
  if (user != own_user()) return failed("only the user that runs the lab gets sessions");
  xdr_memory_writer out;
  if (!xdr_put_session_record(out, record)) return failed("a session record does not encode");
  secret_text bytes(out.take());
  std::error_code trouble;
  std::filesystem::path base = std::filesystem::temp_directory_path(trouble);
  std::string pattern = (trouble ? std::filesystem::path("/tmp") : base) / "qvrlab-XXXXXX";
  if (mkdtemp(pattern.data()) == nullptr) return failed("no directory for a session record");
  path = pattern + "/session";
  int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600);
  bool written = fd >= 0 && fchmod(fd, 0600) == 0 && write_all(fd, bytes.get());
  if (fd >= 0) written = ::close(fd) == 0 && written;
  if (written) return nullptr;
  lab_sessions::drop_file(path);
  return failed("a session record cannot be written");
}

}  // namespace

errobj_t *lab_sessions::make(const gss_user_identity &user, session_record &record,
                             std::string &path, std::string &challenge) {
  const qop_row *row = qop_find(qop_);
  record = {};
  record.qop = static_cast<std::int32_t>(qop_);
  record.has_identity = true;
  record.identity.kind = GSS_IDENTITY_USER;
  record.identity.user = user;
  std::string key(row->key_size, '\0');
  challenge.assign(CHALLENGE_SIZE, '\0');
  if ((!key.empty() && !random_bytes(key.data(), key.size())) ||
      !random_bytes(challenge.data(), challenge.size()) ||
      !random_bytes(&record.session, sizeof record.session)) {
    return failed("no random numbers");
  }
  record.key.assign(key);
  secret_wipe(key);
  if (errobj_t *error = write_file(record, user.user, path)) return error;
  std::lock_guard lock(mutex_);
  if (sessions_.size() >= SESSIONS_MAX) sessions_.clear();
  sessions_[record.session] = record;
  return nullptr;
}

void lab_sessions::drop_file(const std::string &path) {
  if (path.empty()) return;
  unlink(path.c_str());
  rmdir(path.substr(0, path.rfind('/')).c_str());
}

errobj_t *lab_sessions::find(std::uint64_t session, session_record &record) const {
  std::lock_guard lock(mutex_);
  auto at = sessions_.find(session);
  if (at == sessions_.end()) return failed("no such session");
  record = at->second;
  return nullptr;
}

}  // namespace qvr
