#include "tirpc_lab_client.h"

#include <arpa/inet.h>
#include <rpc/rpc.h>
#include <sys/socket.h>

#include <cstdlib>

// Needs the types of rpc.h.
#include <rpc/pmap_prot.h>

namespace qvr::test {

namespace {

constexpr timeval TIMEOUT = {25, 0};

// The library declares its routines with other arguments than it calls them with.
template <class Function>
xdrproc_t routine(Function *function) {
  return reinterpret_cast<xdrproc_t>(reinterpret_cast<void (*)()>(function));
}

CLIENT *handle(void *client) {
  return static_cast<CLIENT *>(client);
}

bool get_string(XDR *xdr, std::string &to) {
  char *text = nullptr;
  if (!xdr_string(xdr, &text, UINT32_MAX)) return false;
  to = text;
  std::free(text);
  return true;
}

bool get_attributes(XDR *xdr, std::vector<std::string> &names) {
  bool_t more = FALSE;
  if (!xdr_bool(xdr, &more)) return false;
  while (more) {
    std::string name, value;
    bool_t values = FALSE;
    if (!get_string(xdr, name) || !xdr_bool(xdr, &values)) return false;
    while (values) {
      if (!get_string(xdr, value) || !xdr_bool(xdr, &values)) return false;
    }
    names.push_back(name);
    if (!xdr_bool(xdr, &more)) return false;
  }
  return true;
}

bool get_volume(XDR *xdr, tirpc_volume &vol) {
  char id[20];
  std::uint32_t word = 0, count = 0;
  std::uint64_t wide = 0;
  if (!xdr_uint32_t(xdr, &word) || !xdr_opaque(xdr, id, sizeof id)) return false;
  for (auto text : {&tirpc_volume::volume, &tirpc_volume::family, &tirpc_volume::type,
                    &tirpc_volume::location, &tirpc_volume::pool, &tirpc_volume::barcode}) {
    if (!get_string(xdr, vol.*text)) return false;
  }
  if (!xdr_uint64_t(xdr, &vol.capacity)) return false;
  // written and read; next and nrec; five times; five words.
  for (int i = 0; i < 2; i++) {
    if (!xdr_uint64_t(xdr, &wide)) return false;
  }
  for (int i = 0; i < 2; i++) {
    if (!xdr_uint32_t(xdr, &word)) return false;
  }
  for (int i = 0; i < 5; i++) {
    if (!xdr_uint64_t(xdr, &wide)) return false;
  }
  for (int i = 0; i < 5; i++) {
    if (!xdr_uint32_t(xdr, &word)) return false;
  }
  if (!get_attributes(xdr, vol.attributes) || !xdr_uint32_t(xdr, &count)) return false;
  for (std::uint32_t i = 0; i < count; i++) {
    if (!xdr_opaque(xdr, id, sizeof id)) return false;
  }
  vol.savesets = count;
  return true;
}

struct name_argument {
  const std::string *name;
  bool_t full;
};

bool_t put_name(XDR *xdr, name_argument *argument) {
  char *text = const_cast<char *>(argument->name->c_str());
  return xdr_string(xdr, &text, UINT32_MAX) && xdr_bool(xdr, &argument->full);
}

bool_t get_volumes(XDR *xdr, std::vector<tirpc_volume> *list) {
  if (xdr->x_op == XDR_FREE) return TRUE;
  int status = 0;
  bool_t more = FALSE, present = FALSE;
  if (!xdr_int(xdr, &status) || status != 2 || !xdr_bool(xdr, &more)) return FALSE;
  while (more) {
    if (!xdr_bool(xdr, &present) || !present || !get_volume(xdr, list->emplace_back()) ||
        !xdr_bool(xdr, &more))
      return FALSE;
  }
  return TRUE;
}

}  // namespace

tirpc_lab_client::tirpc_lab_client(std::uint16_t port, std::uint32_t program, std::uint32_t version,
                                   bool udp) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(port);
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  int fd = RPC_ANYSOCK;
  CLIENT *client = udp ? clntudp_create(&address, program, version, {5, 0}, &fd)
                       : clnttcp_create(&address, program, version, &fd, 0, 0);
  client_ = client;
  if (client == nullptr) return;
  auth_destroy(client->cl_auth);
  client->cl_auth = authunix_create_default();
}

tirpc_lab_client::~tirpc_lab_client() {
  if (client_ == nullptr) return;
  auth_destroy(handle(client_)->cl_auth);
  clnt_destroy(handle(client_));
}

int tirpc_lab_client::null() {
  return clnt_call(handle(client_), NULLPROC, routine(xdr_void), nullptr, routine(xdr_void),
                   nullptr, TIMEOUT);
}

int tirpc_lab_client::pmap_getport(std::uint32_t program, std::uint32_t version,
                                   std::uint32_t protocol, std::uint16_t &port) {
  struct pmap row = {program, version, protocol, 0};
  return clnt_call(handle(client_), PMAPPROC_GETPORT, routine(xdr_pmap),
                   reinterpret_cast<char *>(&row), routine(xdr_u_short),
                   reinterpret_cast<char *>(&port), TIMEOUT);
}

int tirpc_lab_client::pmap_dump(std::vector<std::array<unsigned long, 4>> &rows) {
  struct pmaplist *head = nullptr;
  int status = clnt_call(handle(client_), PMAPPROC_DUMP, routine(xdr_void), nullptr,
                         routine(xdr_pmaplist), reinterpret_cast<char *>(&head), TIMEOUT);
  for (const pmaplist *at = head; at != nullptr; at = at->pml_next)
    rows.push_back(
        {at->pml_map.pm_prog, at->pml_map.pm_vers, at->pml_map.pm_prot, at->pml_map.pm_port});
  xdr_free(routine(xdr_pmaplist), reinterpret_cast<char *>(&head));
  return status;
}

int tirpc_lab_client::volumes_by_name(const std::string &name, bool full,
                                      std::vector<tirpc_volume> &list) {
  name_argument argument = {&name, full};
  return clnt_call(handle(client_), 65, routine(put_name), reinterpret_cast<char *>(&argument),
                   routine(get_volumes), reinterpret_cast<char *>(&list), TIMEOUT);
}

}  // namespace qvr::test
