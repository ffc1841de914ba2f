#include "clnt_error.h"

#include <arpa/inet.h>
#include <netinet/in.h>

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstdio>

#include "err_class.h"
#include "hosts.h"
#include "ks_wrappers.h"
#include "msg.h"
#include "rpc_state.h"

namespace qvr {

namespace {

constexpr std::size_t error_text_size = 1024;

struct why_row {
  int why;
  std::int32_t id;
  const char *text;
};
constexpr why_row why_rows[] = {
    {0, 947, "Authentication OK"},
    {1, 948, "Invalid client credential"},
    {2, 949, "Server rejected credential"},
    {3, 950, "Invalid client verifier"},
    {4, 951, "Server rejected verifier"},
    {5, 952, "Client credential too weak"},
    {6, 953, "Invalid server verifier"},
    {7, 356, "Failed (unspecified error)"},
    {13, 77573, "GSS-API credential problem"},
    {14, 77574, "GSS-API context problem"},
};
constexpr int why_unknown = 7;

// Behind a status text, what else is known about the failure.
using detail_writer = std::string (*)(const rpc_err_t &error);

__attribute__((format(printf, 1, 2))) std::string print(const char *format, ...) {
  char text[error_text_size];
  std::va_list args;
  va_start(args, format);
  std::vsnprintf(text, sizeof text, format, args);
  va_end(args);
  return text;
}

std::string errno_detail(const rpc_err_t &error) {
  return print("; errno = %s", ks_strerror(error.error));
}

std::string peer_detail(const rpc_err_t &error) {
  auto *address = reinterpret_cast<const sockaddr *>(&error.peer);
  std::string text = error.has_peer ? ks_address_text(address) : std::string();
  if (text.empty()) return errno_detail(error);
  bool v6 = error.peer.ss_family == AF_INET6;
  int port = ntohs(v6 ? reinterpret_cast<const sockaddr_in6 *>(&error.peer)->sin6_port
                      : reinterpret_cast<const sockaddr_in *>(&error.peer)->sin_port);
  return print("; peer = %s:%s%d%s, errno = %s", text.c_str(), v6 ? "[" : "", port, v6 ? "]" : "",
               ks_strerror(error.error));
}

std::string version_detail(const rpc_err_t &error) {
  std::string low = msg_arg_ulong(static_cast<unsigned long>(error.low));
  return msg_text(
      944, nullptr, "; low version = %lu, high version = %lu",
      {{MSG_ARG_LONG, low}, {MSG_ARG_LONG, msg_arg_ulong(static_cast<unsigned long>(error.high))}});
}

std::string why_detail(const rpc_err_t &error) {
  return print("; why = %s", rpc_why_text(error.why));
}

std::string raw_detail(const rpc_err_t &error) {
  return print("; s1 = %lu, s2 = %lu", static_cast<unsigned long>(error.low),
               static_cast<unsigned long>(error.high));
}

std::string no_detail(const rpc_err_t &) {
  return {};
}

struct detail_row {
  int first, last;  // statuses
  detail_writer write;
};
// The first row that holds the status counts.
constexpr detail_row detail_rows[] = {
    {3, 4, peer_detail},    {6, 6, version_detail}, {9, 9, version_detail}, {7, 7, why_detail},
    {12, 12, errno_detail}, {29, 29, errno_detail}, {0, 2, no_detail},      {5, 5, no_detail},
    {8, 8, no_detail},      {10, 11, no_detail},    {13, 28, no_detail},
};

// The status that the code tells: a system error that is a time-out is a time-out.
int effective_status(const rpc_err_t &error) {
  return error.status == RPC_SYSTEMERROR && error.error == ETIMEDOUT ? RPC_TIMEDOUT : error.status;
}

}  // namespace

rpc_create_err_t &clnt_create_err() {
  return rpc_thread_state().create_error;
}

void set_create_err(clnt_stat status, int error_or_why) {
  rpc_create_err_t &create = clnt_create_err();
  create = {};
  create.status = status;
  if (status == RPC_AUTHERROR) {
    create.error.why = error_or_why;
  } else {
    create.error.error = error_or_why;
  }
}

void set_create_err(const rpc_err_t &error) {
  clnt_create_err() = {error.status, error};
}

const char *rpc_status_text(int status) {
  auto rows = rpc_status_texts();
  if (status < 0 || static_cast<std::size_t>(status) >= rows.size()) {
    return msg_text(0, nullptr, "Unknown error code: %d", {{MSG_ARG_INT, msg_arg_int(status)}});
  }
  const err_number_t &row = rows[static_cast<std::size_t>(status)];
  return catalog_text(row.id, row.text);
}

const char *rpc_why_text(int why) {
  auto at = std::find_if(std::begin(why_rows), std::end(why_rows),
                         [&](const why_row &row) { return row.why == why; });
  const why_row &row = at != std::end(why_rows) ? *at : why_rows[why_unknown];
  return catalog_text(row.id, row.text);
}

std::string rpc_error_text(const rpc_err_t &error, std::string_view prefix) {
  std::string text;
  if (!prefix.empty()) text.append(prefix).append(": ");
  text += rpc_status_text(error.status);
  detail_writer write = raw_detail;
  for (const detail_row &row : detail_rows) {
    if (error.status >= row.first && error.status <= row.last) {
      write = row.write;
      break;
    }
  }
  text += write(error);
  if (text.size() >= error_text_size) text.resize(error_text_size - 1);
  return text;
}

std::string clnt_error_text(const CLIENT &client, std::string_view prefix) {
  return rpc_error_text(client.last_error(), prefix);
}

std::string clnt_create_error_text(std::string_view prefix) {
  const rpc_create_err_t &create = clnt_create_err();
  std::string head;
  if (!prefix.empty()) head.append(prefix).append(": ");
  std::string status = rpc_status_text(create.status);
  std::string text;
  if (create.status == RPC_SYSTEMERROR || create.status == RPC_PMAPFAILURE) {
    const char *detail = create.status == RPC_SYSTEMERROR ? ks_strerror(create.error.error)
                                                          : rpc_status_text(create.error.status);
    text = msg_text(80720, nullptr, "%s%s - %s",
                    {{MSG_ARG_TEXT, head}, {MSG_ARG_ERRTEXT, status}, {MSG_ARG_ERRTEXT, detail}});
  } else if (create.status == RPC_AUTHERROR) {
    text = msg_text(80721, nullptr, "%s%s; why = %s",
                    {{MSG_ARG_TEXT, head},
                     {MSG_ARG_ERRTEXT, status},
                     {MSG_ARG_ERRTEXT, rpc_why_text(create.error.why)}});
  } else {
    text = msg_text(80722, nullptr, "%s%s", {{MSG_ARG_TEXT, head}, {MSG_ARG_ERRTEXT, status}});
  }
  if (text.size() >= error_text_size) text.resize(error_text_size - 1);
  return text;
}

void clnt_print_status(int status) {
  msg_print(0, 52000, MSG_STDERR, "RPC: %s", {{MSG_ARG_ERRTEXT, rpc_status_text(status)}});
}

int rpc_error_code(int status, int why) {
  if (status != RPC_AUTHERROR) return status + 20000;
  switch (why) {
    case 0:
      return 21007;
    case AUTH_REJECTEDCRED:
    case AUTH_REJECTEDVERF:
      return 24007;
    case 9:
    case AUTH_GSS_CREDPROBLEM:
    case AUTH_GSS_CTXPROBLEM:
      return 23007;
    default:
      return 25007;
  }
}

errobj_t *rpc_error_object(const rpc_err_t &error) {
  if (error.status == RPC_SUCCESS) return nullptr;
  return err_create(76677, rpc_error_code(effective_status(error), error.why), "%s",
                    {{MSG_ARG_ERRTEXT, rpc_error_text(error)}});
}

errobj_t *clnt_error(const CLIENT &client) {
  return rpc_error_object(client.last_error());
}

errobj_t *clnt_create_error() {
  const rpc_create_err_t &create = clnt_create_err();
  if (create.status == RPC_SUCCESS) return nullptr;
  rpc_err_t error = create.error;
  error.status = create.status;
  return err_create(42503, rpc_error_code(effective_status(error), error.why), "%s",
                    {{MSG_ARG_ERRTEXT, clnt_create_error_text()}});
}

void clnt_auth_destroy(std::unique_ptr<CLIENT> &client) {
  if (!client) return;
  client->auth.reset();
  client.reset();
}

}  // namespace qvr
