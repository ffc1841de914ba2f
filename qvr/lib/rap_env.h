// What a network resource database needs of the world around it. Tests give their own.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "attrlist.h"
#include "client.h"
#include "errobj.h"

namespace qvr {

struct rap_address_t {
  std::string host;
  std::uint32_t program = 0;
  std::uint32_t version = 0;
  std::string transport;
};

class rap_env_t {
 public:
  virtual ~rap_env_t() = default;
  // Null with the thread's create error.
  virtual std::unique_ptr<CLIENT> create(const rap_address_t &address);
  // Obtains a credential with the opening attributes and attaches it. An error object or null.
  virtual errobj_t *authenticate(CLIENT &client, const rap_address_t &address,
                                 const attrlist &attrs);
  // The same with user, password and domain.
  virtual errobj_t *login(CLIENT &client, const rap_address_t &address, const std::string &user,
                          const std::string &password, const std::string &domain);
  virtual bool wants_encryption();
  // Puts an authenticated handle on the encrypted channel. False when it cannot be.
  virtual bool turn_on_encryption(CLIENT &client);
  virtual void sleep_seconds(unsigned seconds);
};

// The process's; null goes back to the real one. While no database is in use.
void rap_set_env(rap_env_t *env);
rap_env_t &rap_env();

}  // namespace qvr
