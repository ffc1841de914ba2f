#include "gss_openssl.h"

#include <openssl/conf.h>
#include <openssl/crypto.h>
#include <openssl/err.h>
#include <openssl/evp.h>
#include <openssl/provider.h>
#include <openssl/rand.h>
#include <openssl/ssl.h>
#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <mutex>
#include <string>

#include "debug_words.h"
#include "install_paths.h"
#include "ks_wrappers.h"
#include "msg.h"

namespace qvr {

namespace {

constexpr std::uint64_t ssl_options = 0x200002;  // both kinds of error strings
constexpr std::uint64_t crypto_options = 12;     // all ciphers, all digests
constexpr unsigned long config_flags = 48;       // no file is no failure; default section

std::atomic<bool> fips_skipped{false};

// What the library says first; its errors stay where they are.
std::string library_error() {
  char text[256] = "unknown error";
  if (unsigned long code = ERR_peek_error()) ERR_error_string_n(code, text, sizeof text);
  return text;
}

bool exists(const std::string &path) {
  return access(path.c_str(), F_OK) == 0;
}

bool load_config(std::string &why) {
  std::string path = install_path(INSTALL_SSL, "openssl.cnf");
  if (!exists(path)) return true;
  ERR_clear_error();
  if (CONF_modules_load_file(path.c_str(), nullptr, config_flags) > 0) return true;
  why = library_error();
  msg_print(209439, 55000, MSG_STDERR, "Error loading OpenSSL config file\n");
  ERR_print_errors_fp(stderr);
  return false;
}

// A program that cannot have what the marker asks for goes without the library.
bool enable_fips(std::string &why) {
  if (!exists(install_path(INSTALL_ROOT_DEBUG, "fipsenable"))) return true;
  if (ks_getenv("PURIFY_IS_RUNNING") != nullptr) {
    msg_print(170619, 52000, MSG_STDERR,
              "Running as a purified binary; Bypassing fips mode set...\n");
    return true;
  }
  if (EVP_default_properties_is_fips_enabled(nullptr) == 1) {
    KS_DEBUG(5, "FIPS mode is already initialized, skipping fips mode reinit\n");
    return true;
  }
  // Loaded once for the process: unloading needs the same handle.
  static OSSL_PROVIDER *provider = nullptr;
  ERR_clear_error();
  if (provider == nullptr) provider = OSSL_PROVIDER_load(nullptr, "fips");
  if (provider == nullptr) {
    why = library_error();
    msg_print(209440, 55000, MSG_STDERR, "Failed to load FIPS provider\n");
    ERR_print_errors_fp(stderr);
    return false;
  }
  if (EVP_default_properties_enable_fips(nullptr, 1) == 1) return true;
  why = library_error();
  OSSL_PROVIDER_unload(provider);
  provider = nullptr;
  return false;
}

bool tell_library(const std::string &why) {
  msg_print(89613, 55000, MSG_STDERR, "Unable to initialize SSL library: %s\n",
            {{MSG_ARG_ERRTEXT, why}});
  return false;
}

bool tell_locking() {
  msg_print(89614, 55000, MSG_STDERR, "Unable to initialize SSL locking framework: %s\n",
            {{MSG_ARG_ERRTEXT, library_error()}});
  return false;
}

bool tell_random() {
  msg_print(89615, 55000, MSG_STDERR, "Unable to initialize RNG framework: %s\n",
            {{MSG_ARG_ERRTEXT, library_error()}});
  return false;
}

}  // namespace

bool btls_set_up(bool with_fips) {
  // What the library holds goes with the process; a clean-up at its exit would only take time.
  OPENSSL_init_crypto(OPENSSL_INIT_NO_ATEXIT, nullptr);
  if (OPENSSL_init_ssl(ssl_options, nullptr) != 1 || OPENSSL_init_ssl(0, nullptr) != 1) {
    return tell_library(library_error());
  }
  // Without memory for its default context the library starts all the same, and falls over it
  // later.
  if (OSSL_LIB_CTX_get0_global_default() == nullptr) return tell_library(library_error());
  std::string why;
  if (!load_config(why)) return tell_library(why);
  if (OPENSSL_init_crypto(crypto_options, nullptr) != 1) return tell_locking();
  if (with_fips && !enable_fips(why)) return tell_library(why);
  return RAND_status() == 1 || tell_random();
}

void btls_skip_fips() {
  fips_skipped.store(true, std::memory_order_relaxed);
}

errobj_t *btls_init() {
  static std::once_flag once;
  static bool ready = false;
  std::call_once(
      once, [] { ready = ks_getenv("BTLS_NOOP") != nullptr || btls_set_up(!fips_skipped.load()); });
  if (ready) return nullptr;
  return err_create(89616, 15022,
                    "An error was encountered while initializing the BaseTLS library\n");
}

}  // namespace qvr
