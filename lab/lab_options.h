// How an installation is to be: what it serves, where, and how badly.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "lab_faults.h"

namespace qvr {

struct lab_login {
  std::string user, password;
};

struct lab_options {
  // The catalogue: a file when named, else the sample "SEED[:CLIENTS[:DAYS]]".
  std::string catalogue;
  std::string sample = "1";
  std::uint64_t scale = 0;  // save sets of the sample at least
  std::string store;        // the catalogue is written here before it is served
  // Its save sets are written as record files below this directory, for a device of this path, in
  // layout 1 or 2. Empty: they are not.
  std::string tree;
  std::string device = "/device";
  int layout = 2;
  std::int64_t now = 0;  // seconds since 1970 that a sample lies behind; 0: the clock's

  // The host that the installation answers for: named in credentials and the sample. Empty: this
  // host's name where it means a loopback address, else "localhost".
  std::string host;
  std::uint16_t port = 7938;  // of the port mapper; 0: any that is free

  // Security: values of "auth methods" in place of the catalogue's, none: its own; "connection
  // encrypted" as "Enabled" when set; the quality of protection of sessions, 0: the best; whether
  // clients without a session key are taken; whether there is an authentication service at all.
  std::vector<std::string> auth_methods;
  bool encrypted = false;
  std::uint32_t qop = 0;
  bool insecure = false;
  bool gss = true;

  int more = 2;           // what a range reply says when there is more
  std::int64_t page = 0;  // save sets of a range reply at most; 0: what the protocol allows
  std::vector<lab_fault> faults;
  std::vector<lab_login> logins;

  std::string log;        // file of the call log
  bool keep_log = false;  // events are also kept in memory

  // Of the program alone.
  std::optional<int> ready_fd;
  bool serve = true;
};

// Reads the program's arguments. False when it shall end at once with `status`; what there is to
// say then has been printed.
bool parse_lab_options(int argc, char **argv, lab_options &options, int &status);

}  // namespace qvr
