#include "client_start.h"

#include <unistd.h>

#include <atomic>
#include <mutex>
#include <string>

#include "debug_config.h"
#include "debug_words.h"
#include "host_settings.h"
#include "immortal.h"
#include "install_paths.h"
#include "ks_errors.h"
#include "ks_mutex.h"
#include "ks_wrappers.h"
#include "kstr_auth.h"
#include "kstr_state.h"
#include "msg.h"
#include "msg_process.h"
#include "qvrports.h"
#include "start_env.h"

namespace qvr {

namespace {

// Programs that never speak of encryption to qvrexecd: it, and what it starts before it is up.
constexpr int plain_applications[] = {4, 9};

KSMutex *client_mutex() {
  static KSMutex *mutex = ks_mutex_create();
  return mutex;
}

std::atomic<std::uint32_t> rendered_mode{0};

// The settings of the rendered log, as the message layer asks for them with every message.
std::uint32_t rendered_log_settings() {
  return rendered_mode.load(std::memory_order_relaxed) | msg_outlets().log_mode.load();
}

// True when a rendered log was opened.
bool open_rendered_log() {
  msg_outlets().mode_source = rendered_log_settings;
  const char *path = ks_getenv("QVR_RENDERED_PATH");
  if (path == nullptr) return false;
  if (msg_open_rendered_log(path)) return true;
  KS_DEBUG(1, "Could not open %s for log rendering.\n", path);
  return false;
}

bool read_ports(const char *host, bool wait, resdb_ptr &local) {
  errobj_t *error = qvrports_init(host, wait, &local);
  if (error == nullptr) return true;
  std::string why = error->text;
  while (why.ends_with('\n')) why.pop_back();
  if (qvr_is_own_name(host)) {
    msg_print(145072, error->code, MSG_STDERR, "Unable to get port range from local qvrexecd: %s\n",
              {{MSG_ARG_ERRTEXT, why}});
  } else {
    msg_print(145073, error->code, MSG_STDERR,
              "Unable to get port range from remote qvrexecd: %s\n", {{MSG_ARG_ERRTEXT, why}});
  }
  return false;
}

bool asks_for_encryption() {
  kstr_process_t &process = kstr_process();
  std::lock_guard hold(process.mutex);
  for (int application : plain_applications) {
    if (process.application == application) return false;
  }
  return true;
}

bool read_encryption(resdb_ptr &local) {
  bool on = false;
  errobj_t *error = local == nullptr ? start_env().open_local(local) : nullptr;
  if (error == nullptr) error = read_connection_encrypted(local.get(), on);
  if (error != nullptr) {
    KS_DEBUG(4, "Unable to query the connection encrypted flag from qvrexecd: %s\n",
             error->text.c_str());
    return false;
  }
  kstr_set_connection_encrypted(on);
  return true;
}

void tell_fips() {
  if (access(install_path(INSTALL_ROOT_DEBUG, "fipsenable").c_str(), F_OK) != 0) return;
  if (ks_getenv("PURIFY_IS_RUNNING") != nullptr) return;
  msg_print(171092, 50000, MSG_STDERR, "FIPS mode is enabled\n");
}

}  // namespace

bool qvr_client_init(const char *host, bool wait) {
  if (ks_mutex_lock(client_mutex()) != KS_OK) {
    msg_print(103055, 5000, MSG_STDERR, "Unable to get mutex while getting port range.\n");
    return false;
  }
  std::lock_guard hold(*client_mutex(), std::adopt_lock);
  bool rendered = open_rendered_log();
  resdb_ptr local;
  if (!read_ports(host, wait, local)) return false;
  start_env().start_session();
  if (asks_for_encryption() && !read_encryption(local)) return false;
  if (rendered && local != nullptr) {
    std::uint32_t mode = 0;
    if (read_rendered_log_mode(local.get(), mode) == nullptr) rendered_mode = mode;
  }
  tell_fips();
  debug_config_read();
  return true;
}

}  // namespace qvr
