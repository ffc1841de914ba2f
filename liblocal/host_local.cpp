// What is known of this host itself: its interfaces, its name, and the names that all hosts share.
#include <strings.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <optional>

#include "host_parts.h"
#include "immortal.h"
#include "ks_errors.h"
#include "ks_wrappers.h"
#include "msg_process.h"
#include "progname.h"

namespace qvr {

namespace {

struct local_state_t {
  std::mutex lock;  // guards all below; what is set stays
  std::unique_ptr<const std::vector<ks_interface_t>> interfaces;
  bool ipv6 = false;
  std::optional<std::string> name;
};

local_state_t &local_state() {
  static immortal<local_state_t> state;
  return *state;
}

constexpr const char *alias_names[] = {
    "localhost",     "localhost6",   "loopback", "localhost.localdomain", "localhost6.localdomain6",
    "ip6-localhost", "ip6-loopback",
};
constexpr const char *hosts_file = "/etc/hosts";

bool has_ipv6_loopback(const std::vector<ks_interface_t> &interfaces) {
  return std::any_of(interfaces.begin(), interfaces.end(), [](const ks_interface_t &one) {
    host_address_t address = host_address_of(reinterpret_cast<const sockaddr *>(&one.address));
    return address.family == AF_INET6 && host_address_is_loopback(address);
  });
}

// Fills the interfaces on first use. The look-ups of the system happen without the lock; the first
// thread to come back sets the result.
const std::vector<ks_interface_t> &listed_interfaces() {
  local_state_t &state = local_state();
  {
    std::lock_guard hold(state.lock);
    if (state.interfaces != nullptr) return *state.interfaces;
  }
  auto listed = std::make_unique<const std::vector<ks_interface_t>>(host_resolver().interfaces());
  bool ipv6 = has_ipv6_loopback(*listed) && host_resolver().makes_ipv6_sockets();
  std::lock_guard hold(state.lock);
  if (state.interfaces == nullptr) {
    state.interfaces = std::move(listed);
    state.ipv6 = ipv6;
  }
  return *state.interfaces;
}

[[noreturn]] void unresolvable(const std::string &name) {
  char program[256];
  std::fprintf(stderr,
               "%s: Failed to resolve hostname %s to an internet address. Please verify a mapping "
               "for %s exists in the %s file or DNS.\n",
               ks_get_progname(program, sizeof program), name.c_str(), name.c_str(), hosts_file);
  std::exit(1);
}

std::string find_local_name() {
  std::string name;
  if (!host_resolver().host_name(name)) return "localhost";
  name = host_lower(name);
  addrinfo hints = {};
  hints.ai_flags = AI_CANONNAME;
  hints.ai_socktype = SOCK_STREAM;
  addrinfo *found = nullptr;
  if (ks_inet_getaddrinfo(name.c_str(), nullptr, &hints, &found) != 0) unresolvable(name);
  if (found->ai_canonname != nullptr) name = host_lower(found->ai_canonname);
  ks_inet_freeaddrinfo(found);
  return name;
}

}  // namespace

KSMutex &host_make_mutex() {
  KSMutex *made = ks_mutex_create();
  if (made == nullptr) std::raise(SIGTERM);
  return *made;
}

std::string host_lower(std::string text) {
  for (char &c : text) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return text;
}

bool host_same_text(const char *a, const char *b) {
  return strcasecmp(a, b) == 0;
}

bool host_is_alias_name(const char *name) {
  return std::any_of(std::begin(alias_names), std::end(alias_names),
                     [name](const char *alias) { return host_same_text(alias, name); });
}

bool ks_is_local_alias(const char *name) {
  return name == nullptr || host_is_alias_name(name) || std::strcmp(name, "127.0.0.1") == 0 ||
         std::strcmp(name, "::1") == 0;
}

const std::vector<ks_interface_t> &ks_local_interfaces() {
  return listed_interfaces();
}

bool ks_ipv6_capable() {
  listed_interfaces();
  std::lock_guard hold(local_state().lock);
  return local_state().ipv6;
}

char *ks_getlocalhost(char *buffer, std::size_t size) {
  if (buffer == nullptr || size == 0) return buffer;
  local_state_t &state = local_state();
  std::optional<std::string> name;
  {
    std::lock_guard hold(state.lock);
    name = state.name;
  }
  if (!name) {
    name = find_local_name();
    msg_set_host(*name);
    std::lock_guard hold(state.lock);
    state.name = name;
  }
  ks_strlcpy(buffer, name->c_str(), size);
  return buffer;
}

int ks_getdomainname(char *buffer, std::size_t size) {
  char domain[256] = {};
  if (getdomainname(domain, sizeof domain - 1) != 0) {
    ks_set_error(errno, KS_ERROR_ERRNO);
    return -1;
  }
  if (!host_fill(buffer, size, host_lower(domain))) {
    ks_set_error(ERANGE, KS_ERROR_ERRNO);
    return -1;
  }
  return 0;
}

bool host_fill(char *buffer, std::size_t size, const std::string &text) {
  if (buffer == nullptr || size == 0) return true;
  if (text.size() >= size) return false;
  std::memcpy(buffer, text.c_str(), text.size() + 1);
  return true;
}

void host_forget_local() {
  local_state_t &state = local_state();
  std::lock_guard hold(state.lock);
  state.interfaces = nullptr;
  state.ipv6 = false;
  state.name.reset();
}

}  // namespace qvr
