#include "kstr_token.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

#include "clnt_create.h"
#include "clnt_error.h"
#include "debug_words.h"
#include "install_paths.h"
#include "ks_wrappers.h"
#include "kstr_auth.h"
#include "msg.h"
#include "secrets.h"
#include "xdr_shared.h"

namespace qvr {

namespace {

constexpr int lock_tries = 5;
constexpr std::uint32_t lock_pause = 100;  // milliseconds
constexpr std::chrono::seconds call_timeout{25};
constexpr std::uint32_t PROC_SESSION_TICKET = 10, PROC_SESSION_TOKEN = 12;
constexpr const char *ticket_variable = "QVR session ticket key";
constexpr const char *invalid_token = "<invalid token>";
constexpr std::string_view daemons[] = {"qvrd",    "qvrindexd", "qvrmmdbd",
                                        "qvrjobd", "aqvrd",     "qvrsnmd"};

struct descriptor {
  int fd = -1;
  ~descriptor() {
    if (fd >= 0) close(fd);
  }
};

bool lock_token(const std::string &path, descriptor &lock) {
  lock.fd = open(path.c_str(), O_RDWR | O_CREAT | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC, 0600);
  struct stat info;
  if (lock.fd < 0 || fstat(lock.fd, &info) != 0 || !S_ISREG(info.st_mode) ||
      info.st_uid != geteuid()) {
    int error = lock.fd < 0 ? errno : EPERM;
    msg_print(136611, error + 12000, MSG_STDERR, "Failed to open the lock file: %s\n",
              {{MSG_ARG_ERRTEXT, ks_strerror(error)}});
    return false;
  }
  for (int tries = 0; tries < lock_tries; tries++) {
    struct flock whole = {};
    whole.l_type = F_WRLCK;
    whole.l_whence = SEEK_SET;
    if (fcntl(lock.fd, F_SETLK, &whole) == 0) return true;
    if (errno != EACCES && errno != EAGAIN && errno != EINTR) break;
    if (tries + 1 == lock_tries) break;
    KS_DEBUG(7, "waiting for a token lock\n");
    ks_sleep_ms(lock_pause);
  }
  int error = errno;
  msg_print(136612, error + 12000, MSG_STDERR, "Failed to obtain a lock on the token file: %s\n",
            {{MSG_ARG_ERRTEXT, ks_strerror(error)}});
  return false;
}

bool unreadable(int error) {
  msg_print(122974, error + 12000, MSG_STDERR, "Unable to read authentication token: %s\n",
            {{MSG_ARG_ERRTEXT, ks_strerror(error)}});
  return false;
}

bool read_whole(const std::string &path, std::string &text) {
  descriptor file;
  file.fd = open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC);
  if (file.fd < 0) return unreadable(errno);
  struct stat info;
  if (fstat(file.fd, &info) != 0) return unreadable(errno);
  if (!S_ISREG(info.st_mode) || info.st_uid != geteuid()) return unreadable(EPERM);
  if (info.st_size > static_cast<off_t>(KSTR_TOKEN_MAX)) return unreadable(EFBIG);
  // Room for a file that grows while it is read.
  text.assign(KSTR_TOKEN_MAX + 1, '\0');
  std::size_t have = 0;
  while (have < text.size()) {
    ssize_t got = read(file.fd, text.data() + have, text.size() - have);
    if (got < 0 && errno == EINTR) continue;
    if (got < 0) return unreadable(errno);
    if (got == 0) break;
    have += static_cast<std::size_t>(got);
  }
  if (have > KSTR_TOKEN_MAX) return unreadable(EFBIG);
  text.resize(have);
  return true;
}

// A handle to qvrexecd on this host, authenticated without a credential of its own.
errobj_t *open_local(std::unique_ptr<CLIENT> &client) {
  client = clnt_create_simple("localhost", KSTR_PROGRAM, KSTR_VERSION, "tcp");
  if (!client) return clnt_create_error();
  client->set_auth_mask(client->auth_mask() & ~std::uint32_t{AUTH_METHOD_KSTR});
  if (clnt_bind_auth(*client, "localhost", nullptr, "localhost", false) != nullptr) return nullptr;
  return clnt_create_error();
}

errobj_t *call_local(std::uint32_t procedure, const std::string &text, xdr_decoder decode) {
  std::unique_ptr<CLIENT> client;
  if (errobj_t *error = open_local(client)) return error;
  clnt_stat status = client->call(
      procedure, [&](XDR &xdr) { return xdr.put_counted(text); }, decode, call_timeout);
  return status == RPC_SUCCESS ? nullptr : clnt_error(*client);
}

void fetch_ticket(const std::string &key) {
  attrlist tickets;
  errobj_t *error = call_local(PROC_SESSION_TICKET, key,
                               [&](XDR &xdr) { return xdr_get_attrlist(xdr, tickets); });
  if (error != nullptr) {
    KS_DEBUG(3, "Unable to retrieve session ticket from qvrexecd: %s\n", error->text.c_str());
    return;
  }
  kstr_set_session_tickets(tickets);
}

void fetch_token() {
  const identity_source &source = system_identity();
  secret_text stored, token;
  if (!kstr_read_token(install_dir(INSTALL_TOKENS), source.user_name(source.effective_uid()),
                       stored.get())) {
    kstr_set_token(invalid_token);
    return;
  }
  if (stored.get().empty()) return;
  errobj_t *error = call_local(PROC_SESSION_TOKEN, stored.get(), [&](XDR &xdr) {
    return xdr.get_counted(token.get(), static_cast<std::uint32_t>(KSTR_TOKEN_MAX));
  });
  if (error != nullptr) {
    KS_DEBUG(3, "Unable to retrieve user token from qvrexecd: %s\n", error->text.c_str());
    kstr_set_token(invalid_token);
    return;
  }
  kstr_set_token(token.get());
}

}  // namespace

bool kstr_is_daemon(bool daemon_flag) {
  if (daemon_flag) return true;
  const char *master = ks_getenv("QVR_MAST");
  return master != nullptr &&
         std::find(std::begin(daemons), std::end(daemons), master) != std::end(daemons);
}

bool kstr_read_token(const std::string &directory, std::string_view user, std::string &token) {
  token.clear();
  std::string path = directory + "/.qvrlogin." + std::string(user);
  struct stat info;
  if (user.empty() || user.find('/') != std::string_view::npos ||
      (lstat(path.c_str(), &info) != 0 && (errno == ENOENT || errno == ENOTDIR))) {
    return true;
  }
  descriptor lock;
  if (lock_token(path + ".lck", lock) && read_whole(path, token)) return true;
  secret_wipe(token);
  return false;
}

void kstr_session_start(bool daemon_flag) {
  if (const char *key = ks_getenv(ticket_variable)) {
    fetch_ticket(key);
  } else if (!kstr_is_daemon(daemon_flag)) {
    fetch_token();
  }
}

}  // namespace qvr
