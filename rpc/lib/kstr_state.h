// What authentication keeps for the process and for a thread (set through kstr_auth.h).
#pragma once

#include <chrono>
#include <mutex>
#include <string>

#include "attrlist.h"
#include "kstr_auth.h"

namespace qvr {

struct kstr_process_t {
  std::mutex mutex;  // guards everything below
  int application = -1;
  std::string key;
  std::string server;
  std::chrono::seconds timeout{25};
  std::string token;
  attrlist session_tickets;
  bool connection_encrypted = false;
  kstr_local_server_t local_server;
};
kstr_process_t &kstr_process();

struct kstr_thread_t {
  std::string server;
  std::string service;
  std::string user;  // stands for the user's own name
  std::string token;
  attrlist ldap;
};
kstr_thread_t &kstr_thread();

// The thread's token, else the process's.
std::string kstr_token();

}  // namespace qvr
