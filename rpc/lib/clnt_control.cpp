// The setters of a TCP handle and the control operation by number.
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>

#include <cerrno>

#include "clnt_tcp.h"
#include "debug_words.h"
#include "ks_sockets.h"
#include "ks_wrappers.h"
#include "tcp_keepalive.h"

namespace qvr {

void clnt_tcp::set_timeout(std::chrono::microseconds timeout) {
  transport_.timeout = timeout;
  transport_.wait_mode = CLNT_WAIT_SET;
  if (transport_.cancel.function == nullptr) transport_.poll_interval = timeout;
}

void clnt_tcp::set_no_timeout() {
  transport_.timeout = CLNT_NO_TIMEOUT;
  transport_.wait_mode = CLNT_WAIT_FOREVER;
  if (transport_.cancel.function == nullptr) transport_.poll_interval = CLNT_NO_TIMEOUT;
}

bool clnt_tcp::set_poll(std::chrono::microseconds interval, clnt_cancel_t cancel) {
  transport_.poll_interval = interval;
  transport_.cancel = cancel;
  return true;
}

void clnt_tcp::reset_poll() {
  transport_.poll_interval = transport_.timeout;
  transport_.cancel = {};
}

bool clnt_tcp::set_encrypted() {
  encrypted_ = true;
  return true;
}

bool clnt_tcp::set_clear_reply() {
  if (!encrypted_) return false;
  clear_reply_ = true;
  return true;
}

bool clnt_tcp::get_buffer(int option, int &size) const {
  socklen_t length = sizeof size;
  return ks_getsockopt(transport_.socket, SOL_SOCKET, option, &size, &length) == 0;
}

bool clnt_tcp::set_buffer(int option, int size) {
  if (ks_setsockopt(transport_.socket, SOL_SOCKET, option, &size, sizeof size) == 0) return true;
  int saved = errno;
  if (option == SO_RCVBUF) {
    KS_DEBUG(1, "Failed to set socket receive buffer size to %d: %s\n", size, ks_strerror(saved));
  } else {
    KS_DEBUG(1, "Failed to set socket send buffer size to %d: %s\n", size, ks_strerror(saved));
  }
  return false;
}

bool clnt_tcp::set_nodelay(bool on) {
  int value = on ? 1 : 0;
  return ks_setsockopt(transport_.socket, IPPROTO_TCP, TCP_NODELAY, &value, sizeof value) == 0;
}

bool clnt_tcp::apply_keepalive() {
  return tcp_keepalive_apply(transport_.socket);
}

void clnt_tcp::set_stats(const char *name) {
  if (name != nullptr) {
    rpc_stats_start(transport_.stats, *stream_, transport_.socket, name, over_long, this);
    return;
  }
  rpc_stats_stop(transport_.stats, stream_.get(), false);
  // A handle is never without its limit.
  stream_->set_fragmax(rpc_stats_fragmax(), over_long, this);
}

namespace {

struct control_row {
  unsigned command;
  bool needs_argument;
  bool (*run)(clnt_tcp &handle, void *argument);
};

template <class T>
T &as(void *argument) {
  return *static_cast<T *>(argument);
}

using microseconds = std::chrono::microseconds;

constexpr control_row rows[] = {
    {CLSET_TIMEOUT, false,
     [](clnt_tcp &h, void *a) {
       if (a != nullptr) {
         h.set_timeout(as<microseconds>(a));
       } else {
         h.set_no_timeout();
       }
       return true;
     }},
    {CLGET_TIMEOUT, true,
     [](clnt_tcp &h, void *a) {
       as<microseconds>(a) = h.timeout();
       return true;
     }},
    {CLGET_SERVER_ADDR, true,
     [](clnt_tcp &h, void *a) {
       as<sockaddr_storage>(a) = h.peer();
       return true;
     }},
    {CLGET_FD, true,
     [](clnt_tcp &h, void *a) {
       as<int>(a) = h.socket();
       return true;
     }},
    {CLSET_FD_CLOSE, false,
     [](clnt_tcp &h, void *) {
       h.close_on_destroy(true);
       return true;
     }},
    {CLSET_FD_NCLOSE, false,
     [](clnt_tcp &h, void *) {
       h.close_on_destroy(false);
       return true;
     }},
    {CLGET_PROG, true,
     [](clnt_tcp &h, void *a) {
       as<std::uint32_t>(a) = h.program();
       return true;
     }},
    {CLSET_PROG, true,
     [](clnt_tcp &h, void *a) {
       h.set_program(as<std::uint32_t>(a));
       return true;
     }},
    {CLGET_RCVBUF, true, [](clnt_tcp &h, void *a) { return h.get_buffer(SO_RCVBUF, as<int>(a)); }},
    {CLSET_RCVBUF, true, [](clnt_tcp &h, void *a) { return h.set_buffer(SO_RCVBUF, as<int>(a)); }},
    {CLGET_SNDBUF, true, [](clnt_tcp &h, void *a) { return h.get_buffer(SO_SNDBUF, as<int>(a)); }},
    {CLSET_SNDBUF, true, [](clnt_tcp &h, void *a) { return h.set_buffer(SO_SNDBUF, as<int>(a)); }},
    {CLSET_POLL, false,
     [](clnt_tcp &h, void *a) {
       if (a != nullptr) return h.set_poll(as<clnt_poll_t>(a).interval, as<clnt_poll_t>(a).cancel);
       h.reset_poll();
       return true;
     }},
    {CLGET_POLL, true,
     [](clnt_tcp &h, void *a) {
       as<clnt_poll_t>(a) = h.poll();
       return true;
     }},
    {CLSET_PEEK_ON_WRITE, true,
     [](clnt_tcp &h, void *a) {
       h.set_peek_on_write(as<int>(a) != 0);
       return true;
     }},
    {CLSET_REPLY_SEEN, true,
     [](clnt_tcp &h, void *a) {
       h.set_reply_seen(as<int>(a) != 0);
       return true;
     }},
    {CLSET_NODELAY, true, [](clnt_tcp &h, void *a) { return h.set_nodelay(as<int>(a) != 0); }},
    {CLGET_REPLY_SEEN, true,
     [](clnt_tcp &h, void *a) {
       as<int>(a) = h.reply_seen() ? 1 : 0;
       return true;
     }},
    {CLGET_XDRS, true,
     [](clnt_tcp &h, void *a) {
       as<XDR *>(a) = h.stream();
       return true;
     }},
    {CLSET_CLEAR_REPLY, true,
     [](clnt_tcp &h, void *a) { return as<int>(a) != 0 && h.set_clear_reply(); }},
    {CLSET_ENCRYPTED, false, [](clnt_tcp &h, void *) { return h.set_encrypted(); }},
    {CLGET_ENCRYPTED, true,
     [](clnt_tcp &h, void *a) {
       as<int>(a) = h.encrypted() ? 1 : 0;
       return true;
     }},
    {CLGET_AUTH_MASK, true,
     [](clnt_tcp &h, void *a) {
       as<std::uint32_t>(a) = h.auth_mask();
       return true;
     }},
    {CLSET_AUTH_MASK, true,
     [](clnt_tcp &h, void *a) {
       h.set_auth_mask(as<std::uint32_t>(a));
       return true;
     }},
    {CLGET_WAIT_MODE, true,
     [](clnt_tcp &h, void *a) {
       as<int>(a) = h.wait_mode();
       return true;
     }},
    {CLSET_WAIT_MODE, true,
     [](clnt_tcp &h, void *a) {
       int mode = as<int>(a);
       if (mode < CLNT_WAIT_NONE || mode > CLNT_WAIT_FOREVER) return false;
       h.set_wait_mode(static_cast<clnt_wait_mode>(mode));
       return true;
     }},
    {CLSET_SINGLE_FRAGMENT, true,
     [](clnt_tcp &h, void *a) {
       h.stream()->set_single_fragment(as<int>(a) != 0);
       return true;
     }},
    {CLSET_KEEPALIVE, false, [](clnt_tcp &h, void *) { return h.apply_keepalive(); }},
    {CLSET_STATS, false,
     [](clnt_tcp &h, void *a) {
       h.set_stats(static_cast<const char *>(a));
       return true;
     }},
};

}  // namespace

bool clnt_tcp::control(unsigned command, void *argument) {
  for (const control_row &row : rows) {
    if (row.command != command) continue;
    return (argument != nullptr || !row.needs_argument) && row.run(*this, argument);
  }
  return false;
}

}  // namespace qvr
