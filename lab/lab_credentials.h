// The credentials that the lab's auth server issues and that its daemons take.
#pragma once

#include <array>
#include <cstdint>
#include <map>
#include <mutex>
#include <string>
#include <string_view>

#include "lab_faults.h"

namespace qvr {

// A credential or verifier of a call or reply (RFC 5531).
struct lab_auth {
  std::uint32_t flavour = 0;
  std::string body;
};

// The judgement on a call's credential.
struct lab_judgement {
  std::uint32_t deny = 0;  // auth_stat; 0: accepted
  std::string kind;        // for the log
  std::string user;
  bool full = false;       // a full AUTH_KSTR credential
  bool challenge = false;  // a login asks for a challenge
  lab_auth verifier;       // what the reply carries
  bool own = false;        // a call of the flavour itself: no procedure runs
  bool silent = false;     // nothing is answered
  std::string answer;      // to a call of the flavour itself
};

// Any thread.
class lab_credentials {
 public:
  lab_credentials();

  // A new credential of this user, as an auth server sends it: hidden with the key of the
  // application. Empty for an application that is not known. `form` is a fault's word.
  std::string issue(std::string_view host, std::string_view user, std::uint32_t application,
                    std::string_view form);
  // The user of a credential that this installation issued, hidden or not; empty when it is none.
  std::string user_of(std::string_view blob) const;

  lab_judgement judge(const lab_auth &credential, const lab_fault &fault);

  // Users who may log in with a password.
  void add_login(std::string user, std::string password);
  // The challenge that a login must answer; a new one each time.
  std::string new_challenge();

 private:
  std::string seal(std::string_view serial_and_user) const;
  void judge_kstr(const lab_auth &credential, const lab_fault &fault, lab_judgement &verdict);
  bool login_is_good(std::string_view user, std::string_view response);
  std::uint32_t new_short(const std::string &user);

  std::array<std::uint8_t, 20> secret_;
  std::map<std::string, std::string> logins_;  // set before the daemons start

  std::mutex mutex_;  // guards what follows
  std::uint64_t issued_ = 0;
  std::uint32_t last_short_ = 0;
  std::map<std::uint32_t, std::string> shorts_;  // short credentials and their users
  std::string challenge_;
};

// SHA-1 (RFC 3174) as raw bytes and as lower-case hexadecimal digits.
std::string lab_sha1(std::string_view bytes);
std::string lab_hex(std::string_view bytes);

}  // namespace qvr
