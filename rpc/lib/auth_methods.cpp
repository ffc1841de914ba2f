#include "auth_methods.h"

#include <netdb.h>
#include <netinet/in.h>

#include <algorithm>
#include <charconv>
#include <cstring>

#include "auth_handle.h"
#include "debug_words.h"
#include "hosts.h"
#include "ks_wrappers.h"
#include "msg.h"
#include "rpc_state.h"

namespace qvr {

namespace {

constexpr std::int32_t bad_value_code = 54000;

struct method_row {
  std::string_view name;
  std::uint32_t mask;
};
constexpr method_row method_rows[] = {
    {"qvrauth", 24},
    {"gsskstrv1", 16},
    {"qvrlogon", 8},
    {"oldauth", 15},
};

// The bytes that a network is compared by; a mapped IPv4 address counts as IPv4.
std::string_view address_bytes(const sockaddr_storage &address) {
  if (address.ss_family == AF_INET) {
    const auto &v4 = reinterpret_cast<const sockaddr_in &>(address);
    return {reinterpret_cast<const char *>(&v4.sin_addr), 4};
  }
  const auto &v6 = reinterpret_cast<const sockaddr_in6 &>(address);
  std::string_view bytes(reinterpret_cast<const char *>(&v6.sin6_addr), 16);
  return IN6_IS_ADDR_V4MAPPED(&v6.sin6_addr) ? bytes.substr(12) : bytes;
}

bool network_holds(const auth_methods::row &row, const sockaddr_storage &peer) {
  if (row.prefix == 0) return true;
  std::string_view network = address_bytes(row.network), address = address_bytes(peer);
  if (network.size() != address.size()) return false;
  std::size_t bits = std::min<std::size_t>(row.prefix, network.size() * 8);
  if (std::memcmp(network.data(), address.data(), bits / 8) != 0) return false;
  if (bits % 8 == 0) return true;
  int differing = network[bits / 8] ^ address[bits / 8];
  return ((differing >> (8 - bits % 8)) & (0xff >> (8 - bits % 8))) == 0;
}

errobj_t *resolve_host(const std::string &host, std::vector<sockaddr_storage> &addresses) {
  addrinfo hints = {}, *found = nullptr;
  hints.ai_socktype = SOCK_STREAM;
  int result = ks_inet_getaddrinfo(host.c_str(), nullptr, &hints, &found);
  if (result == EAI_NONAME || (result == 0 && found == nullptr)) {
    return err_create(86527, bad_value_code, "Name '%s' is not a valid host name.",
                      {{MSG_ARG_HOST, host}});
  }
  if (result != 0) {
    return err_create(61239, bad_value_code, "Unable to look up host '%s': %s\n",
                      {{MSG_ARG_HOST, host}, {MSG_ARG_ERRTEXT, ks_gai_strerror(result)}});
  }
  for (const addrinfo *info = found; info != nullptr; info = info->ai_next) {
    sockaddr_storage address = {};
    std::memcpy(&address, info->ai_addr, std::min<std::size_t>(info->ai_addrlen, sizeof address));
    addresses.push_back(address);
  }
  ks_inet_freeaddrinfo(found);
  return nullptr;
}

errobj_t *parse_methods(std::string_view text, std::uint32_t &mask) {
  mask = 0;
  for (bool more = true; more;) {
    std::size_t end = text.find('/');
    more = end != std::string_view::npos;
    std::string_view name = text.substr(0, end);
    while (name.starts_with(' ')) name.remove_prefix(1);
    while (name.ends_with(' ')) name.remove_suffix(1);
    auto row = std::find_if(std::begin(method_rows), std::end(method_rows),
                            [&](const method_row &r) { return r.name == name; });
    if (row == std::end(method_rows)) {
      return err_create(86528, bad_value_code,
                        "Authentication method '%s' is invalid or unsupported.",
                        {{MSG_ARG_TEXT, name}});
    }
    mask |= row->mask;
    if (more) text.remove_prefix(end + 1);
  }
  return nullptr;
}

errobj_t *bad_host(std::string_view host) {
  return err_create(86527, bad_value_code, "Name '%s' is not a valid host name.",
                    {{MSG_ARG_HOST, host}});
}

errobj_t *parse_value(std::string_view value, const host_resolver &resolve,
                      std::vector<auth_methods::row> &rows) {
  std::size_t comma = value.find(',');
  if (comma == std::string_view::npos) {
    return err_create(86526, bad_value_code,
                      "Invalid authentication method string: missing comma between host address "
                      "and authentication method.");
  }
  std::string_view network = value.substr(0, comma), prefix_text;
  std::size_t slash = network.find('/');
  if (slash != std::string_view::npos) {
    prefix_text = network.substr(slash + 1);
    network = network.substr(0, slash);
  }
  auth_methods::row row;
  if (errobj_t *error = parse_methods(value.substr(comma + 1), row.mask)) return error;

  std::string host(network);
  std::vector<sockaddr_storage> addresses(1);
  socklen_t length;
  if (host.empty()) return bad_host(host);
  if (!ks_parse_address(host.c_str(), addresses.front(), length)) {
    addresses.clear();
    errobj_t *error = resolve ? resolve(host, addresses) : resolve_host(host, addresses);
    if (error != nullptr) return error;
  }
  for (const sockaddr_storage &address : addresses) {
    row.network = address;
    row.prefix = static_cast<unsigned>(address_bytes(address).size() * 8);
    if (slash != std::string_view::npos) {
      unsigned prefix = 0;
      auto [stop, bad] =
          std::from_chars(prefix_text.data(), prefix_text.data() + prefix_text.size(), prefix);
      if (bad != std::errc() || stop != prefix_text.data() + prefix_text.size() ||
          prefix > row.prefix) {
        return bad_host(value.substr(0, comma));
      }
      row.prefix = prefix;
    }
    rows.push_back(row);
  }
  return nullptr;
}

sockaddr_storage loopback(int family) {
  sockaddr_storage address = {};
  address.ss_family = static_cast<sa_family_t>(family);
  if (family == AF_INET) {
    reinterpret_cast<sockaddr_in &>(address).sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  } else {
    reinterpret_cast<sockaddr_in6 &>(address).sin6_addr = in6addr_loopback;
  }
  return address;
}

const auth_methods::row *row_for(const std::vector<auth_methods::row> &rows,
                                 const sockaddr_storage &peer) {
  auto at = std::find_if(rows.begin(), rows.end(),
                         [&](const auth_methods::row &row) { return network_holds(row, peer); });
  return at != rows.end() ? &*at : nullptr;
}

// A GSS method needs the daemon of this host for its session keys, so this host must allow it.
void support_localhost(std::vector<auth_methods::row> &rows, bool from_local) {
  bool wanted = std::any_of(rows.begin(), rows.end(), [](const auth_methods::row &row) {
    return (row.mask & AUTH_METHOD_GSS) != 0;
  });
  if (!wanted) return;
  bool added = false;
  for (int family : {AF_INET6, AF_INET}) {
    sockaddr_storage here = loopback(family);
    const auth_methods::row *row = row_for(rows, here);
    if (row == nullptr || (row->mask & AUTH_METHOD_GSS) != 0) continue;
    auth_methods::row local;
    local.network = here;
    local.prefix = static_cast<unsigned>(address_bytes(here).size() * 8);
    local.mask = row->mask | AUTH_METHOD_GSS;
    rows.insert(rows.begin(), local);
    added = true;
  }
  if (!added || !from_local) return;
  msg_print(3854, 1, MSG_STDERR,
            "Some authentication methods require localhost support in order to use them when "
            "communicating with a remote host.  The following auth methods were enabled for the "
            "localhost (even though configuration suggests otherwise): %s.\n",
            {{MSG_ARG_TEXT, "gsskstrv1"}});
}

}  // namespace

errobj_t *auth_methods::parse(const vallist &values, bool from_local,
                              std::shared_ptr<const auth_methods> &methods,
                              const host_resolver &resolve) {
  auto parsed = std::make_shared<auth_methods>();
  for (const std::string &value : values) {
    errobj_t *error = parse_value(value, resolve, parsed->rows_);
    if (error == nullptr) continue;
    if (from_local) {
      msg_print(86524, error->code, MSG_STDERR,
                "Cannot parse the authentication methods field value '%s': %s\n",
                {{MSG_ARG_TEXT, value}, msg_pair_t(error)});
    }
    return error;
  }
  support_localhost(parsed->rows_, from_local);
  methods = std::move(parsed);
  return nullptr;
}

errobj_t *auth_methods::mask_for(const sockaddr_storage &peer, std::uint32_t &mask) const {
  if (peer.ss_family != AF_INET && peer.ss_family != AF_INET6) {
    return err_from_table(1, EAFNOSUPPORT);
  }
  const row *found = row_for(rows_, peer);
  mask = found != nullptr ? found->mask : AUTH_METHOD_ALL;
  if (ks_is_local_address(reinterpret_cast<const sockaddr *>(&peer))) mask |= AUTH_METHOD_NONE;
  return nullptr;
}

void set_auth_methods(std::shared_ptr<const auth_methods> methods) {
  rpc_global_t &global = rpc_global();
  std::lock_guard lock(global.mutex);
  global.methods = std::move(methods);
}

std::shared_ptr<const auth_methods> get_auth_methods() {
  rpc_global_t &global = rpc_global();
  std::lock_guard lock(global.mutex);
  return global.methods;
}

std::uint32_t auth_mask_for(const sockaddr_storage &peer) {
  auto methods = get_auth_methods();
  std::uint32_t mask = AUTH_METHOD_ALL;
  if (!methods) {
    KS_DEBUG(2, "Auth methods not set, using default\n");
    return mask;
  }
  if (errobj_t *error = methods->mask_for(peer, mask)) {
    KS_DEBUG(1, "%s:%d Error retrieving auth methods: %s. Using defaults\n", __FILE__, __LINE__,
             error->text.c_str());
    return AUTH_METHOD_ALL;
  }
  return mask;
}

}  // namespace qvr
