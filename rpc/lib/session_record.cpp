#include "session_record.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

#include "debug_words.h"
#include "gss_status.h"

namespace qvr {

namespace {

struct descriptor {
  int fd = -1;
  ~descriptor() {
    if (fd >= 0) close(fd);
  }
};

bool put_identity(XDR &xdr, const gss_identity &identity) {
  if (!xdr.put_u32(identity.kind)) return false;
  if (identity.kind == GSS_IDENTITY_DAEMON) return xdr_put_daemon_identity(xdr, identity.daemon);
  if (identity.kind == GSS_IDENTITY_USER) return xdr_put_user_identity(xdr, identity.user);
  return identity.kind == GSS_IDENTITY_NONE;
}

bool get_identity(XDR &xdr, gss_identity &identity) {
  if (!xdr.get_u32(identity.kind)) return false;
  if (identity.kind == GSS_IDENTITY_DAEMON) return xdr_get_daemon_identity(xdr, identity.daemon);
  if (identity.kind == GSS_IDENTITY_USER) return xdr_get_user_identity(xdr, identity.user);
  return identity.kind == GSS_IDENTITY_NONE;
}

bool put_secret(XDR &xdr, const secret_bytes &bytes) {
  return bytes.size() <= SESSION_KEY_MAX && xdr.put_counted(bytes.view());
}

bool get_secret(XDR &xdr, secret_bytes &bytes) {
  bytes.wipe();
  return xdr.get_counted(bytes.bytes(), SESSION_KEY_MAX);
}

// Only its owner, who is this user or root, could have put anything there.
bool trusted(int fd) {
  struct stat info;
  return fstat(fd, &info) == 0 && S_ISREG(info.st_mode) &&
         (info.st_uid == geteuid() || info.st_uid == 0) && (info.st_mode & 077) == 0 &&
         info.st_size <= static_cast<off_t>(SESSION_FILE_MAX);
}

bool read_whole(int fd, std::string &bytes) {
  // One byte more shows a file that has grown past the limit. The text never moves, which would
  // leave a copy behind, and what of it is not read into costs no memory.
  constexpr std::size_t most = SESSION_FILE_MAX + 1, piece = 2048;
  bytes.reserve(most);
  std::size_t have = 0;
  while (have < most) {
    bytes.resize(std::min(have + piece, most));
    ssize_t got = read(fd, bytes.data() + have, bytes.size() - have);
    if (got < 0 && errno == EINTR) continue;
    if (got < 0) return false;
    if (got == 0) break;
    have += static_cast<std::size_t>(got);
  }
  bytes.resize(have);
  return have <= SESSION_FILE_MAX;
}

}  // namespace

bool xdr_put_session_record(XDR &xdr, const session_record &record) {
  return xdr.put_i32(record.qop) && xdr.put_bool(record.has_identity) &&
         (!record.has_identity || put_identity(xdr, record.identity)) &&
         xdr.put_u64(record.session) && put_secret(xdr, record.key) &&
         put_secret(xdr, record.reserved1) && put_secret(xdr, record.reserved2);
}

bool xdr_get_session_record(XDR &xdr, session_record &record) {
  return xdr.get_i32(record.qop) && xdr.get_bool(record.has_identity) &&
         (!record.has_identity || get_identity(xdr, record.identity)) &&
         xdr.get_u64(record.session) && get_secret(xdr, record.key) &&
         get_secret(xdr, record.reserved1) && get_secret(xdr, record.reserved2);
}

errobj_t *session_record_read(const std::string &path, session_record &record) {
  descriptor file;
  // The name came off the wire: one that holds a NUL byte names no file.
  if (!path.empty() && path.find('\0') == std::string::npos) {
    file.fd = open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
  }
  if (file.fd < 0 || !trusted(file.fd)) return GSS_UNEXPECTED("Could not open file\n");
  secret_text bytes;
  if (!read_whole(file.fd, bytes.get())) return GSS_UNEXPECTED("Could create xdrs\n");
  xdr_memory_reader in(bytes.get());
  if (xdr_get_session_record(in, record)) return nullptr;
  record = {};
  return GSS_UNEXPECTED("Could not decode data\n");
}

}  // namespace qvr
