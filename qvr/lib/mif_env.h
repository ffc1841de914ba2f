// What a session needs of the world around it. Tests give their own.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "client.h"
#include "errobj.h"
#include "kstr_auth.h"

namespace qvr {

class mif_env_t {
 public:
  virtual ~mif_env_t() = default;
  // Obtains a credential for the media database of `server` and connects. An error and an empty
  // target host: the authentication failed; an error and a host: connecting to it did. `client` may
  // stay null without an error; the thread's create error then tells why.
  virtual errobj_t *connect(std::string_view server, std::unique_ptr<CLIENT> &client,
                            kstr_target &target);
  virtual std::int64_t now();  // seconds since 1970
  virtual void sleep_ms(std::uint32_t milliseconds);
  virtual bool exiting();
  virtual std::string local_host();
};

// The process's; null goes back to the real one. While no session is in use.
void mif_set_env(mif_env_t *env);
mif_env_t &mif_env();

}  // namespace qvr
