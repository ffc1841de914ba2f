// The RAP protocol, by which resources are read: its procedures, replies and XDR.
#pragma once

#include <cstdint>
#include <vector>

#include "attrlist.h"
#include "errobj.h"
#include "resdb.h"
#include "xdr.h"

namespace qvr {

inline constexpr std::uint32_t QVRD_PROGRAM = 390109;
inline constexpr std::uint32_t QVRD_VERSION = 2;
inline constexpr std::uint32_t QVREXECD_PROGRAM = 390113;
inline constexpr std::uint32_t QVREXECD_VERSION = 1;

enum rap_proc : std::uint32_t {
  RAP_QUERY = 101,
  RAP_GET = 102,
  RAP_CREATE = 103,
  RAP_DELETE = 104,
  RAP_UPDATE = 105,
  RAP_APPEND = 106,
};

enum rap_status : std::int32_t {
  RAP_DATA = 0,
  RAP_DATA_AND_ERROR = 1,
  RAP_ERROR = 2,
};

// Resources that one call of RAP_GET asks for at most.
inline constexpr std::uint32_t RAP_GET_LIMIT = 8192;

using residlist_t = std::vector<resid_t>;

// 101.
struct rap_query_args {
  std::uint32_t limit = 0;
  attrlist query;
};
// 102. The list of ids is never empty.
struct rap_get_args {
  std::uint32_t limit = 0;
  residlist_t ids;
  attrlist query;
  attrlist wanted;
};

// What follows depends on the status: an error object, the data, or both in this order. The error
// lies in the thread's ring.
struct rap_ids_reply {
  std::int32_t status = RAP_DATA;
  errobj_t *error = nullptr;
  std::int32_t rap_mark = 0;
  residlist_t ids;
};
struct rap_res_reply {
  std::int32_t status = RAP_DATA;
  errobj_t *error = nullptr;
  reslist_t resources;
};

bool xdr_put_resid(XDR &xdr, const resid_t &id);
bool xdr_get_resid(XDR &xdr, resid_t &id);
bool xdr_put_resource(XDR &xdr, const resource_t &resource);
bool xdr_get_resource(XDR &xdr, resource_t &resource);
bool xdr_put_args(XDR &xdr, const rap_query_args &args);
bool xdr_get_args(XDR &xdr, rap_query_args &args);
bool xdr_put_args(XDR &xdr, const rap_get_args &args);
bool xdr_get_args(XDR &xdr, rap_get_args &args);
bool xdr_put_reply(XDR &xdr, const rap_ids_reply &reply);
bool xdr_get_reply(XDR &xdr, rap_ids_reply &reply);
bool xdr_put_reply(XDR &xdr, const rap_res_reply &reply);
bool xdr_get_reply(XDR &xdr, rap_res_reply &reply);

}  // namespace qvr
