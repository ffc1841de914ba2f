#include "qvrports.h"

#include <netdb.h>
#include <strings.h>

#include <string>

#include "auth_methods.h"
#include "debug_words.h"
#include "host_settings.h"
#include "hosts.h"
#include "ks_errors.h"
#include "ks_mutex.h"
#include "ks_wrappers.h"
#include "msg.h"
#include "port_settings.h"
#include "start_env.h"

namespace qvr {

namespace {

KSMutex *start_mutex() {
  static KSMutex *mutex = ks_mutex_create();
  return mutex;
}

// Holds the mutex of start-up.
class start_hold {
 public:
  start_hold() : held_(ks_mutex_lock(start_mutex()) == KS_OK) {}
  ~start_hold() {
    if (held_) ks_mutex_unlock(start_mutex());
  }
  start_hold(const start_hold &) = delete;
  start_hold &operator=(const start_hold &) = delete;
  explicit operator bool() const { return held_; }

 private:
  bool held_;
};

errobj_t *open_patiently(const std::string &host, bool wait, resdb_ptr &handle) {
  bool own = qvr_is_own_name(host.c_str());
  errobj_t *error = nullptr;
  for (int left = wait ? START_TRIES : 1; left > 0; left--) {
    bool not_yet = false;
    error = start_env().open_execd(host, own, handle, not_yet);
    if (error == nullptr || !not_yet) return error;
    if (left == 1) break;
    KS_DEBUG(1, "Waiting for qvrexecd to start.\n");
    start_env().sleep_seconds(1);
  }
  return error;
}

// What both roads read.
errobj_t *read_ports(resdb_t *handle) {
  if (errobj_t *error = read_multi_subnet(handle)) {
    std::string why = error->text;
    msg_print(200170, error->code, MSG_STDERR, "unable to initialize multisubnet state: %s\n",
              {{MSG_ARG_ERRTEXT, why}});
  }
  return port_settings_read(handle);
}

errobj_t *init_from_host(const std::string &host, bool wait, resdb_ptr &handle) {
  errobj_t *error = open_patiently(host, wait, handle);
  if (error == nullptr) error = read_ports(handle.get());
  if (error == nullptr) return nullptr;
  std::string why = error->text;
  return err_create(145078, error->code, "Failed to initialize ports using qvrexecd on %s: %s",
                    {{MSG_ARG_HOST, host}, {MSG_ARG_ERRTEXT, why}});
}

errobj_t *init_from_local(resdb_ptr &handle) {
  errobj_t *error = start_env().open_local(handle);
  if (error == nullptr) error = read_ports(handle.get());
  if (error == nullptr) return nullptr;
  std::string why = error->text;
  return err_create(145077, error->code,
                    "Failed to initialize ports using local resource database: %s\n",
                    {{MSG_ARG_ERRTEXT, why}});
}

// The way out when no database answered: what a parent process knew.
errobj_t *init_from_parent(errobj_t *failure) {
  const char *service = ks_getenv(SERVICE_PORTS_VARIABLE);
  if (service == nullptr) return failure;
  KS_DEBUG(1, "%s\n", failure->text.c_str());
  errobj_t *error = qvrports_init_from_env(service, ks_getenv(CONNECTION_PORTS_VARIABLE));
  if (error == nullptr) return nullptr;
  std::string why = error->text;
  return err_create(145079, error->code, "Could not get the list of ports from environment: %s\n",
                    {{MSG_ARG_ERRTEXT, why}});
}

void read_methods(resdb_t *handle, bool local) {
  if (get_auth_methods() != nullptr) return;
  errobj_t *error = read_auth_settings(handle, local);
  if (error != nullptr) KS_DEBUG(1, "Could not get the list of valid auth methods\n");
}

}  // namespace

bool qvr_is_own_name(const char *host) {
  char own[NI_MAXHOST];
  return host == nullptr || *host == '\0' || ks_is_local_alias(host) ||
         strcasecmp(host, ks_getlocalhost(own, sizeof own)) == 0;
}

errobj_t *qvrports_init(const char *host, bool wait, resdb_ptr *keep) {
  start_hold hold;
  if (!hold) return err_create(103055, 5000, "Unable to get mutex while getting port range.\n");
  resdb_ptr handle;
  bool by_host = host != nullptr && *host != '\0';
  errobj_t *error = by_host ? init_from_host(host, wait, handle) : init_from_local(handle);
  bool answered = error == nullptr;
  if (!answered) error = init_from_parent(error);
  if (error != nullptr) return error;
  // A database that answered is asked further, even where the ports came from elsewhere.
  if (handle != nullptr) {
    if (errobj_t *failed = read_reverse_dns(handle.get())) {
      std::string why = failed->text;
      msg_print(208179, failed->code, MSG_STDERR, "Failed to get reverse DNS settings: %s\n",
                {{MSG_ARG_ERRTEXT, why}});
    }
  }
  bool local = qvr_is_own_name(host);
  read_methods(handle.get(), local);
  if (answered && local && keep != nullptr) *keep = std::move(handle);
  return nullptr;
}

}  // namespace qvr
