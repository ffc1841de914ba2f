#include "tirpc_peer.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <rpc/rpc.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <string>
#include <vector>

namespace qvr::test {

namespace {

struct blob_t {
  char *bytes = nullptr;
  u_int size = 0;
};

bool_t xdr_blob(XDR *xdrs, blob_t *blob) {
  return xdr_bytes(xdrs, &blob->bytes, &blob->size, 64u << 20);
}

template <class Value>
xdrproc_t proc(bool_t (*routine)(XDR *, Value *)) {
  return reinterpret_cast<xdrproc_t>(reinterpret_cast<void (*)()>(routine));
}

void serve(svc_req *request, SVCXPRT *transport) {
  static std::vector<char> memory;
  auto void_proc = reinterpret_cast<xdrproc_t>(reinterpret_cast<void (*)()>(xdr_void));
  switch (request->rq_proc) {
    case TIRPC_NULL:
      svc_sendreply(transport, void_proc, nullptr);
      return;
    case TIRPC_ECHO: {
      blob_t blob;
      if (!svc_getargs(transport, proc(xdr_blob), reinterpret_cast<char *>(&blob))) {
        svcerr_decode(transport);
        return;
      }
      svc_sendreply(transport, proc(xdr_blob), reinterpret_cast<char *>(&blob));
      svc_freeargs(transport, proc(xdr_blob), reinterpret_cast<char *>(&blob));
      return;
    }
    case TIRPC_BYTES: {
      u_int size = 0;
      if (!svc_getargs(transport, proc(xdr_u_int), reinterpret_cast<char *>(&size))) {
        svcerr_decode(transport);
        return;
      }
      memory.resize(size);
      for (u_int i = 0; i < size; i++) memory[i] = static_cast<char>(i);
      blob_t blob{memory.data(), size};
      svc_sendreply(transport, proc(xdr_blob), reinterpret_cast<char *>(&blob));
      return;
    }
    default:
      svcerr_noproc(transport);
  }
}

sockaddr_in loopback(std::uint16_t port) {
  sockaddr_in address = {};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  address.sin_port = htons(port);
  return address;
}

}  // namespace

tirpc_server::tirpc_server(bool udp, unsigned fragment) {
  int fd = socket(AF_INET, (udp ? SOCK_DGRAM : SOCK_STREAM) | SOCK_CLOEXEC, 0);
  sockaddr_in address = loopback(0);
  socklen_t size = sizeof address;
  if (bind(fd, reinterpret_cast<sockaddr *>(&address), size) != 0 ||
      getsockname(fd, reinterpret_cast<sockaddr *>(&address), &size) != 0 ||
      (!udp && listen(fd, 8) != 0)) {
    close(fd);
    return;
  }
  port_ = ntohs(address.sin_port);
  child_ = fork();
  if (child_ == 0) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    SVCXPRT *transport = udp ? svc_dg_create(fd, 0, 0) : svc_vc_create(fd, fragment, fragment);
    if (transport != nullptr && svc_reg(transport, TIRPC_PROGRAM, TIRPC_VERSION, serve, nullptr)) {
      svc_run();
    }
    _exit(1);
  }
  close(fd);
}

tirpc_server::~tirpc_server() {
  if (child_ <= 0) return;
  kill(child_, SIGKILL);
  waitpid(child_, nullptr, 0);
}

tirpc_client::tirpc_client(std::uint16_t port, bool udp, std::uint32_t program,
                           std::uint32_t version) {
  int fd = socket(AF_INET, (udp ? SOCK_DGRAM : SOCK_STREAM) | SOCK_CLOEXEC, 0);
  sockaddr_in address = loopback(port);
  netbuf place = {};
  place.maxlen = place.len = sizeof address;
  place.buf = &address;
  if (!udp) {
    int on = 1;
    setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
  }
  CLIENT *client = udp ? clnt_dg_create(fd, &place, program, version, 0, 0)
                       : clnt_vc_create(fd, &place, program, version, 0, 0);
  if (client == nullptr) {
    close(fd);
    return;
  }
  clnt_control(client, CLSET_FD_CLOSE, nullptr);
  handle_ = client;
}

tirpc_client::~tirpc_client() {
  if (handle_ != nullptr) clnt_destroy(static_cast<CLIENT *>(handle_));
}

std::size_t tirpc_client::null_calls(std::size_t count) {
  auto *client = static_cast<CLIENT *>(handle_);
  auto void_proc = reinterpret_cast<xdrproc_t>(reinterpret_cast<void (*)()>(xdr_void));
  std::size_t answered = 0;
  for (std::size_t i = 0; i < count; i++) {
    timeval timeout = {25, 0};
    if (clnt_call(client, TIRPC_NULL, void_proc, nullptr, void_proc, nullptr, timeout) ==
        RPC_SUCCESS) {
      answered++;
    }
  }
  return answered;
}

}  // namespace qvr::test
