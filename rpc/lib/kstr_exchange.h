// One exchange with auth servers: attempts, retries, redirects. Both ways to a credential use it.
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "kstr_auth.h"

namespace qvr {

// How the debug lines of the two ways call themselves, and a new try.
struct kstr_words {
  const char *name;
  const char *retrying;
};

// Whether a failed attempt is worth another, and how.
enum class kstr_verdict {
  give_up,
  new_connection,   // after a sleep, with a connection of one's own
  same_connection,  // after a sleep, on the passed-in handle
  fall_back,        // at once, from the passed-in handle to a connection of one's own
};
// `round` counts from 0 with a connection of one's own and from -1 with a passed-in handle.
kstr_verdict kstr_judge(std::int32_t code, bool passed_in, int round);
inline constexpr int KSTR_LAST_ROUND = 3;
inline constexpr int KSTR_REDIRECTS_MAX = 8;
inline constexpr std::chrono::seconds KSTR_PAUSE{10};

struct kstr_exchange {
  std::uint32_t procedure = KSTR_PROC_AUTH;
  const kstr_words *words = nullptr;
  CLIENT *passed_in = nullptr;  // borrowed; null: connections of one's own
  kstr_target target;           // host (empty: this host), program and version to begin with
  std::string local_name;       // what this host is called towards the auth server
  std::uint32_t mask = AUTH_METHOD_ALL;
  int application = 0;
  // Called before each attempt with the name of the auth server.
  std::function<void(const std::string &)> before;
  // Writes the arguments.
  std::function<bool(XDR &)> arguments;
  // Answers in the place of this host's auth server; empty: nobody does.
  std::function<errobj_t *(kstr_result &)> local;
  // With an error of number 33 the exchange goes on there, once; empty: it does not.
  std::string other_server;

  // Runs to the end. An error object or null with tag 0 or 1 in `result`.
  errobj_t *run(kstr_result &result);
  bool answered_locally() const { return answered_locally_; }

 private:
  enum class outcome { answered, failed, ended };

  outcome attempt(kstr_result &result);
  outcome open();
  outcome bind(CLIENT &client, bool own);
  void follow(kstr_result &result);
  bool move_to_other();
  std::string shown_host() const { return target.host.empty() ? "localhost" : target.host; }
  void keep(const errobj_t *error) { pending_ = *error; }

  std::unique_ptr<CLIENT> own_;
  std::optional<errobj_t> pending_;
  bool answered_locally_ = false;
};

}  // namespace qvr
