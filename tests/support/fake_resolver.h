// A resolver whose world a test makes up, and a catcher of messages and debug lines.
#pragma once

#include <arpa/inet.h>
#include <netdb.h>

#include <atomic>
#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "debug_settings.h"
#include "debug_words.h"
#include "host_seams.h"
#include "hosts.h"
#include "ks_clock.h"
#include "msg_process.h"

namespace qvr::test {

// The clock of these tests, moved by hand.
inline std::atomic<std::int64_t> fake_now{1'000'000};

class fake_resolver : public ks_resolver_t {
 public:
  struct host_t {
    std::string canonical;  // empty: the system gives none
    std::vector<std::string> addresses;
    int error = 0;
  };
  std::map<std::string, host_t> hosts;
  std::map<std::string, std::string> names;  // of addresses
  std::map<std::string, unsigned> services;
  std::string own_name = "vault";
  std::vector<std::string> interface_addresses = {"127.0.0.1"};
  bool ipv6 = false;
  std::int64_t takes = 0;  // seconds of each look-up
  int reverse_error = EAI_NONAME;
  int forwards = 0, reverses = 0;

  fake_resolver() {
    hosts["vault"] = {"vault.example.com", {"10.0.0.1"}, 0};
    names["10.0.0.1"] = "vault.example.com";
    fake_now = 1'000'000;
    ks_set_clock([] { return fake_now.load(); });
    ks_set_resolver(this);
  }
  ~fake_resolver() override {
    ks_set_resolver(nullptr);
    ks_set_clock(nullptr);
    ks_set_rdns_state("banned");
    msg_set_host(host_before_);
  }

  static sockaddr_storage address(const std::string &text, unsigned port = 0) {
    sockaddr_storage out;
    socklen_t length;
    ks_parse_address(text.c_str(), out, length);
    if (out.ss_family == AF_INET) {
      reinterpret_cast<sockaddr_in &>(out).sin_port = htons(static_cast<std::uint16_t>(port));
    } else {
      reinterpret_cast<sockaddr_in6 &>(out).sin6_port = htons(static_cast<std::uint16_t>(port));
    }
    return out;
  }

  int forward(const char *host, const char *service, const addrinfo *hints,
              addrinfo **result) override {
    std::lock_guard hold(lock_);
    forwards++;
    fake_now += takes;
    std::vector<std::string> addresses = {host};
    std::string canonical;
    sockaddr_storage parsed;
    socklen_t length;
    std::string name = host;
    for (char &c : name) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    auto known = hosts.find(name);
    if (known != hosts.end()) {
      if (known->second.error != 0) return known->second.error;
      addresses = known->second.addresses;
      canonical = known->second.canonical;
    } else if (!ks_parse_address(host, parsed, length) || std::strcmp(host, "0.0.0.0") == 0) {
      return EAI_NONAME;
    }
    unsigned port = 0;
    if (service != nullptr) {
      auto found = services.find(service);
      port = found != services.end() ? found->second : static_cast<unsigned>(std::atoi(service));
      if (port == 0) return EAI_SERVICE;
    }
    addrinfo **link = result;
    for (const std::string &text : addresses) {
      sockaddr_storage place = address(text, port);
      if (hints != nullptr && hints->ai_family != AF_UNSPEC &&
          hints->ai_family != place.ss_family) {
        continue;
      }
      auto entry = std::make_unique<addrinfo>();
      *entry = {};
      entry->ai_family = place.ss_family;
      entry->ai_socktype = hints != nullptr ? hints->ai_socktype : 0;
      entry->ai_addrlen = place.ss_family == AF_INET ? sizeof(sockaddr_in) : sizeof(sockaddr_in6);
      entry->ai_addr = reinterpret_cast<sockaddr *>(new sockaddr_storage(place));
      if (!canonical.empty() && link == result) entry->ai_canonname = strdup(canonical.c_str());
      *link = entry.release();
      link = &(*link)->ai_next;
    }
    return *result != nullptr ? 0 : EAI_NONAME;
  }

  void free_forward(addrinfo *result) override {
    while (result != nullptr) {
      std::unique_ptr<addrinfo> entry(result);
      result = entry->ai_next;
      delete reinterpret_cast<sockaddr_storage *>(entry->ai_addr);
      free(entry->ai_canonname);
    }
  }

  int reverse(const sockaddr *sa, socklen_t, char *host, socklen_t host_size, char *service,
              socklen_t service_size, int flags) override {
    std::lock_guard hold(lock_);
    reverses++;
    fake_now += takes;
    std::string text = ks_address_text(sa);
    auto known = names.find(text);
    if ((flags & NI_NUMERICHOST) == 0) {
      if (known != names.end()) {
        text = known->second;
      } else if ((flags & NI_NAMEREQD) != 0) {
        return reverse_error;
      }
    }
    if (host_size != 0) std::snprintf(host, host_size, "%s", text.c_str());
    if (service_size != 0) std::snprintf(service, service_size, "%s", "svc");
    return 0;
  }

  bool host_name(std::string &name) override {
    name = own_name;
    return !own_name.empty();
  }
  std::vector<ks_interface_t> interfaces() override {
    std::vector<ks_interface_t> all;
    unsigned index = 1;
    for (const std::string &text : interface_addresses) {
      all.push_back({"if" + std::to_string(index), index, address(text)});
      index++;
    }
    return all;
  }
  bool makes_ipv6_sockets() override { return ipv6; }

 private:
  std::string host_before_ = msg_host();  // what error objects name
  std::mutex lock_;                       // guards the counts and the clock during look-ups
};

// Catches what would be printed while it lives. One at a time.
class caught_messages {
 public:
  caught_messages() {
    all().clear();
    msg_outlets().service = true;  // everything goes to the handler
    msg_outlets().handler = [](const errobj_t *error, std::uint32_t) {
      std::lock_guard hold(lock());
      all().push_back(*error);
    };
  }
  ~caught_messages() {
    msg_outlets().handler = nullptr;
    msg_outlets().service = false;
    debug_set_level(0);
  }
  std::vector<errobj_t> taken() const {
    std::lock_guard hold(lock());
    return std::exchange(all(), {});
  }
  // All texts in one.
  std::string text() const {
    std::string out;
    for (const errobj_t &error : taken()) out += error.text;
    return out;
  }

 private:
  static std::vector<errobj_t> &all() {
    static std::vector<errobj_t> messages;
    return messages;
  }
  static std::mutex &lock() {
    static std::mutex mutex;
    return mutex;
  }
};

}  // namespace qvr::test
