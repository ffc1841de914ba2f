#include "tcp_keepalive.h"

#include <netinet/in.h>
#include <netinet/tcp.h>

#include <cerrno>
#include <charconv>
#include <cstring>

#include "debug_words.h"
#include "ks_sockets.h"
#include "ks_wrappers.h"

namespace qvr {

namespace {

struct setting_row {
  const char *variable;
  int tcp_keepalive_t::*member;
  int option;
  std::int32_t id;
  const char *invalid;
  const char *what, *unit;  // when it is refused
};
constexpr setting_row rows[] = {
    {"VL_TCP_KEEPIDLE_SECS", &tcp_keepalive_t::idle, TCP_KEEPIDLE, 184176,
     "user provided keepalive idle time is invalid.", "idle time", " seconds"},
    {"VL_TCP_KEEPINTVL_SECS", &tcp_keepalive_t::interval, TCP_KEEPINTVL, 184177,
     "user provided keepalive interval time is invalid.", "interval time", " seconds"},
    {"VL_TCP_KEEPCNT", &tcp_keepalive_t::count, TCP_KEEPCNT, 184178,
     "user provided keepalive count is invalid.", "probe count", ""},
};

}  // namespace

errobj_t *tcp_keepalive_settings(tcp_keepalive_t &settings) {
  for (const setting_row &row : rows) {
    const char *text = ks_getenv(row.variable);
    if (text == nullptr) continue;
    const char *end = text + std::strlen(text);
    int value = 0;
    auto [stop, error] = std::from_chars(text, end, value);
    if (error != std::errc() || stop != end || value <= 0) {
      return err_create(row.id, 54000, row.invalid);
    }
    settings.*row.member = value;
  }
  return nullptr;
}

bool tcp_keepalive_apply(int socket) {
  tcp_keepalive_t settings;
  if (errobj_t *error = tcp_keepalive_settings(settings)) {
    KS_DEBUG(3, "%s\n", error->text.c_str());
    return false;
  }
  for (const setting_row &row : rows) {
    int value = settings.*row.member;
    if (ks_setsockopt(socket, IPPROTO_TCP, row.option, &value, sizeof value) != 0) {
      int saved = errno;
      KS_DEBUG(1, "Unable to set the socket keepalive %s to %d%s: %s.\n", row.what, value, row.unit,
               ks_strerror(saved));
      return false;
    }
  }
  return true;
}

}  // namespace qvr
