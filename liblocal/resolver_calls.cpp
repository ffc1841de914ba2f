// The calls of the resolver: simulated faults, debug lines, and reports of slow look-ups.
#include <arpa/inet.h>

#include <cstdio>
#include <cstring>

#include "debug_settings.h"
#include "debug_words.h"
#include "fault_table.h"
#include "host_parts.h"
#include "ks_clock.h"
#include "msg.h"

namespace qvr {

namespace {

const char *or_null(const char *text) {
  return text != nullptr ? text : "<null>";
}

// Seconds that a call took beyond what the operator puts up with, or 0.
class lookup_timer {
 public:
  lookup_timer() : threshold_(debug_flags.log_dns_threshold) {
    if (threshold_ > 0) start_ = ks_clock_now();
  }
  std::int64_t too_long() const {
    if (threshold_ <= 0) return 0;
    std::int64_t took = ks_clock_now() - start_;
    return took > threshold_ ? took : 0;
  }

 private:
  int threshold_;
  std::int64_t start_ = 0;
};

const char *outcome(int rc) {
  return rc == 0 ? "Successful" : "Failed";
}

void report_slow_forward(int rc, const char *host, const char *service, const addrinfo *hints,
                         std::int64_t seconds) {
  const char *took = msg_arg_long(seconds);
  if (hints == nullptr) {
    msg_print(175836, 12000, MSG_STDERR,
              "%s forward DNS lookup of host %s, service %s with no hints took %d seconds\n",
              {{MSG_ARG_TEXT, outcome(rc)},
               {MSG_ARG_HOST, host},
               {MSG_ARG_TEXT, or_null(service)},
               {MSG_ARG_INT, took}});
    return;
  }
  msg_print(175835, 12000, MSG_STDERR,
            "%s forward DNS lookup of host %s, service %s with hints ai_flags %04x, ai_family %d, "
            "ai_socktype %d, ai_protocol %d took %d seconds\n",
            {{MSG_ARG_TEXT, outcome(rc)},
             {MSG_ARG_HOST, host},
             {MSG_ARG_TEXT, or_null(service)},
             {MSG_ARG_UINT, msg_arg_uint(static_cast<unsigned>(hints->ai_flags))},
             {MSG_ARG_INT, msg_arg_int(hints->ai_family)},
             {MSG_ARG_INT, msg_arg_int(hints->ai_socktype)},
             {MSG_ARG_INT, msg_arg_int(hints->ai_protocol)},
             {MSG_ARG_INT, took}});
}

void report_slow_reverse(int rc, const std::string &address, int flags, std::int64_t seconds) {
  msg_print(0, 12000, MSG_STDERR, "%s DNS lookup of address %s with flags %04x took %d seconds\n",
            {{MSG_ARG_TEXT, outcome(rc)},
             {MSG_ARG_ADDRESS, address},
             {MSG_ARG_UINT, msg_arg_uint(static_cast<unsigned>(flags))},
             {MSG_ARG_INT, msg_arg_long(seconds)}});
}

void tell_hints(const addrinfo *hints) {
  if (hints == nullptr) {
    KS_DEBUG(7, "ks_inet_getaddrinfo(): no input hints\n");
    return;
  }
  KS_DEBUG(7,
           "ks_inet_getaddrinfo(): input hints ai_flags=0x%04x\tai_family=%d\tai_socktype=%d\t"
           "ai_protocol=%d\n",
           static_cast<unsigned>(hints->ai_flags), hints->ai_family, hints->ai_socktype,
           hints->ai_protocol);
}

int forward(const char *host, const char *service, const addrinfo *hints, addrinfo **result) {
  if (const fault_t *fault = fault_of_host(host)) {
    KS_DEBUG(7,
             "ks_inet_getaddrinfo_rdlr(): matched %s %s %s - NL_RE NI configured to bypass libc\n",
             fault->kind.c_str(), fault->what.c_str(), fault->effect.c_str());
    return EAI_FAIL;
  }
  KS_DEBUG(7, "ks_inet_getaddrinfo(): pass-through ... calling external libc getaddrinfo() ...\n");
  lookup_timer timer;
  int rc = host_resolver().forward(host, service, hints, result);
  if (std::int64_t seconds = timer.too_long()) {
    report_slow_forward(rc, host, service, hints, seconds);
  }
  return rc;
}

unsigned port_of(const sockaddr *address) {
  return ntohs(address->sa_family == AF_INET
                   ? reinterpret_cast<const sockaddr_in *>(address)->sin_port
                   : reinterpret_cast<const sockaddr_in6 *>(address)->sin6_port);
}

// What the fault table says of an address.
int faulty_reverse(const fault_t &fault, const sockaddr *address, const std::string &text,
                   char *host, std::size_t host_size, char *service, std::size_t service_size) {
  KS_DEBUG(7, "ks_inet_getnameinfo_rdlr(): matched %s %s %s - NL_RE NI configured to bypass libc\n",
           fault.kind.c_str(), fault.what.c_str(), fault.effect.c_str());
  if (host_same_text(fault.effect.c_str(), "sim_error")) return EAI_FAIL;
  bool same = host_same_text(fault.effect.c_str(), "same_ip");
  if (!host_fill(host, host_size, same ? text : fault.effect) ||
      !host_fill(service, service_size, std::to_string(port_of(address)))) {
    return EAI_OVERFLOW;
  }
  return 0;
}

int reverse(const sockaddr *address, socklen_t length, const std::string &text, char *host,
            std::size_t host_size, char *service, std::size_t service_size, int flags) {
  // A numeric text is no look-up: nothing of it can be at fault.
  if (!text.empty() && (flags & NI_NUMERICHOST) == 0) {
    if (const fault_t *fault = fault_of_address(text.c_str())) {
      return faulty_reverse(*fault, address, text, host, host_size, service, service_size);
    }
  }
  KS_DEBUG(7, "ks_inet_getnameinfo(): pass-through ... calling external libc getnameinfo() ...\n");
  lookup_timer timer;
  int rc = host_resolver().reverse(address, length, host, static_cast<socklen_t>(host_size),
                                   service, static_cast<socklen_t>(service_size), flags);
  if (std::int64_t seconds = timer.too_long()) report_slow_reverse(rc, text, flags, seconds);
  return rc;
}

}  // namespace

int host_call_forward(const char *host, const char *service, const addrinfo *hints,
                      addrinfo **result) {
  *result = nullptr;
  KS_DEBUG(7, "ks_inet_getaddrinfo(): ENTER input host=%s\tinput service=%s\n", host,
           or_null(service));
  tell_hints(hints);
  int rc = forward(host, service, hints, result);
  if (debug_on(7)) {
    const addrinfo *first = rc == 0 ? *result : nullptr;
    std::string address = first != nullptr ? ks_address_text(first->ai_addr) : std::string();
    KS_DEBUG(7, "ks_inet_getaddrinfo(): EXIT rc=%d\toutput cannonname = %s\toutput addr = %s\n", rc,
             or_null(first != nullptr ? first->ai_canonname : nullptr), address.c_str());
  }
  return rc;
}

void host_free_forward(addrinfo *result) {
  if (result != nullptr) host_resolver().free_forward(result);
}

int host_call_reverse(const sockaddr *address, socklen_t length, char *host, std::size_t host_size,
                      char *service, std::size_t service_size, int flags) {
  std::string text = ks_address_text(address);
  KS_DEBUG(7,
           "ks_inet_getnameinfo(): ENTER\tinput sa=%s\tinput host buff=%p hostlen=%d\tinput "
           "service buff=%p servicelen=%d\tinput flags=0x%04x\n",
           text.c_str(), static_cast<void *>(host), static_cast<int>(host_size),
           static_cast<void *>(service), static_cast<int>(service_size),
           static_cast<unsigned>(flags));
  if (text.empty()) KS_DEBUG(7, "ks_inet_getnameinfo(): unexpected AF_xxx\n");
  int rc = reverse(address, length, text, host, host_size, service, service_size, flags);
  KS_DEBUG(7, "ks_inet_getnameinfo(): EXIT rc=%d\t host str=%s\tservice str=%s\n", rc,
           rc == 0 && host != nullptr && host_size != 0 ? host : "",
           rc == 0 && service != nullptr && service_size != 0 ? service : "");
  return rc;
}

}  // namespace qvr
