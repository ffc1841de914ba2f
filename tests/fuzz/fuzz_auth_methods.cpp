// Values of "auth methods": any texts, one a line. What is accepted must answer for every peer.
#include <arpa/inet.h>

#include <algorithm>

#include "auth_methods.h"
#include "debug_words.h"
#include "fuzz.h"

using namespace qvr;

namespace {

// Names that begin with 'h' have an address; nothing of this machine is asked.
errobj_t *names(const std::string &name, std::vector<sockaddr_storage> &found) {
  sockaddr_storage address = {};
  auto &v4 = reinterpret_cast<sockaddr_in &>(address);
  v4.sin_family = AF_INET;
  if (!name.starts_with('h')) return err_from_table(2, 13);
  v4.sin_addr.s_addr = htonl(0x7f000001);
  found.push_back(address);
  return nullptr;
}

sockaddr_storage peer(int family, const char *text) {
  sockaddr_storage address = {};
  address.ss_family = static_cast<sa_family_t>(family);
  void *bytes = family == AF_INET
                    ? static_cast<void *>(&reinterpret_cast<sockaddr_in &>(address).sin_addr)
                    : static_cast<void *>(&reinterpret_cast<sockaddr_in6 &>(address).sin6_addr);
  inet_pton(family, text, bytes);
  return address;
}

}  // namespace

void fuzz(std::string_view text) {
  debug_set_level(-1);
  vallist values;
  while (!text.empty()) {
    std::size_t end = std::min(text.find('\n'), text.size());
    values.push_back(std::string(text.substr(0, end)));
    text.remove_prefix(std::min(end + 1, text.size()));
  }
  std::shared_ptr<const auth_methods> methods;
  errobj_t *error = auth_methods::parse(values, false, methods, names);
  if ((error == nullptr) != (methods != nullptr)) std::abort();
  if (!methods) return;
  for (const auth_methods::row &row : methods->rows()) {
    if (row.prefix > 128 || row.mask == 0 || row.mask > 31) std::abort();
  }
  for (const sockaddr_storage &address :
       {peer(AF_INET, "10.1.1.1"), peer(AF_INET, "255.255.255.255"), peer(AF_INET6, "fe80::1")}) {
    std::uint32_t mask = 0;
    if (methods->mask_for(address, mask) == nullptr && (mask == 0 || mask > 31)) std::abort();
  }
}
