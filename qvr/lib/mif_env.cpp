#include "mif_env.h"

#include "atexit_list.h"
#include "hosts.h"
#include "ks_clock.h"
#include "ks_wrappers.h"

namespace qvr {

namespace {

mif_env_t real_env;
mif_env_t *current_env = &real_env;

}  // namespace

errobj_t *mif_env_t::connect(std::string_view server, std::unique_ptr<CLIENT> &client,
                             kstr_target &target) {
  return kstr_mmdb_auth(server, client, target);
}

std::int64_t mif_env_t::now() {
  return ks_clock_now();
}

void mif_env_t::sleep_ms(std::uint32_t milliseconds) {
  ks_sleep_ms(milliseconds);
}

bool mif_env_t::exiting() {
  return ks_process_ending();
}

std::string mif_env_t::local_host() {
  char name[256];
  return ks_getlocalhost(name, sizeof name);
}

void mif_set_env(mif_env_t *env) {
  current_env = env != nullptr ? env : &real_env;
}

mif_env_t &mif_env() {
  return *current_env;
}

}  // namespace qvr
