#include "kstr_fallback.h"

#include "auth_kstr.h"
#include "auth_unix.h"

namespace qvr {

namespace {

struct step_row {
  std::uint32_t flavor;
  std::uint32_t method;
  std::unique_ptr<AUTH> (*create)(CLIENT &client);
};
// From the strongest to the weakest; the first flavour is where a fallback begins and is never
// fallen back to.
constexpr step_row steps[] = {
    {RPCSEC_GSS, AUTH_METHOD_GSS, nullptr},
    {AUTH_KSTR, AUTH_METHOD_KSTR,
     [](CLIENT &client) { return authkstr_create(client, {}, nullptr); }},
    {AUTH_UNIX, AUTH_METHOD_UNIX, [](CLIENT &) { return authunix_create(); }},
    {AUTH_NONE, AUTH_METHOD_NONE, [](CLIENT &) { return authnone_create(); }},
};

}  // namespace

bool kstr_fall_back(CLIENT &client) {
  // What must be encrypted is not said under any weaker flavour.
  if (!client.auth || client.encrypted()) return false;
  std::uint32_t from = client.auth->flavor();
  if (from == RPCSEC_GSS_OLD) from = RPCSEC_GSS;
  bool below = false;
  for (const step_row &step : steps) {
    if (below && (client.auth_mask() & step.method) != 0) {
      if (auto auth = step.create(client)) {
        client.auth = std::move(auth);
        return true;
      }
    }
    below = below || step.flavor == from;
  }
  return false;
}

}  // namespace qvr
