// The replies of the media database, and their XDR.
//
// Every reply begins with its status. Decoders answer false when any field is damaged; encoders
// write what the status calls for and nothing else.
#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "errobj.h"
#include "records.h"
#include "xdr.h"

namespace qvr {

enum mmdb_status : std::int32_t {
  MMDB_OK = 2,
  MMDB_LOCAL_ERROR = 4,  // a reply that the client builds itself from an error of its own
  MMDB_NO_ENTRY = 32,
};

// With any status but MMDB_OK, `error` tells why; it lies in the thread's ring and is null when the
// server sent the code 0.
struct ss_reply {
  std::int32_t status = 0;
  ss_list list;
  errobj_t *error = nullptr;
};
struct ssr_reply : ss_reply {
  std::int32_t ssr_more = 0;
};
struct vol_reply {
  std::int32_t status = 0;
  vol_list list;
  errobj_t *error = nullptr;
};
struct volr_reply : vol_reply {
  std::int32_t volr_more = 0;
};
struct hist_reply {
  std::int32_t status = 0;
  hist_list list;
  errobj_t *error = nullptr;
};

// What a batch operation could not do. The error is a copy: there may be more of them than a ring
// holds.
struct op_failure_t {
  ksui id;
  errobj_t error;
};
struct ssop_reply {
  std::int32_t status = 0;
  std::vector<op_failure_t> failures;
  errobj_t *error = nullptr;
};

struct ids_reply {
  std::int32_t status = 0;
  std::vector<ksui> ids;
  errobj_t *error = nullptr;
};

// Status MMDB_NO_ENTRY says that there is no mapping, and nothing follows.
struct clidmap_reply {
  std::int32_t status = 0;
  std::optional<clidmap> entry;
  errobj_t *error = nullptr;
};

// Carries an error with either status; otherwise also the volumes that failed.
struct volops_reply {
  std::int32_t status = 0;
  errobj_t *error = nullptr;
  std::vector<ksui> failed;
};

struct bools_reply {
  std::int32_t status = 0;
  std::int32_t first = 0;
  std::int32_t second = 0;
  errobj_t *error = nullptr;
};

// Lists of records, empty or not. A node of save sets or volumes is its record behind a presence
// word; nodes without a record are dropped, and a list whose first node has none counts as empty. A
// node of change records is the record alone.
bool xdr_put_ss_list(XDR &xdr, const ss_list &list);
bool xdr_get_ss_list(XDR &xdr, ss_list &list);
bool xdr_put_vol_list(XDR &xdr, const vol_list &list);
bool xdr_get_vol_list(XDR &xdr, vol_list &list);
bool xdr_put_hist_list(XDR &xdr, const hist_list &list);
bool xdr_get_hist_list(XDR &xdr, hist_list &list);

bool xdr_put_reply(XDR &xdr, const ss_reply &reply);
bool xdr_get_reply(XDR &xdr, ss_reply &reply);
bool xdr_put_reply(XDR &xdr, const ssr_reply &reply);
bool xdr_get_reply(XDR &xdr, ssr_reply &reply);
bool xdr_put_reply(XDR &xdr, const vol_reply &reply);
bool xdr_get_reply(XDR &xdr, vol_reply &reply);
bool xdr_put_reply(XDR &xdr, const volr_reply &reply);
bool xdr_get_reply(XDR &xdr, volr_reply &reply);
bool xdr_put_reply(XDR &xdr, const hist_reply &reply);
bool xdr_get_reply(XDR &xdr, hist_reply &reply);
bool xdr_put_reply(XDR &xdr, const ssop_reply &reply);
bool xdr_get_reply(XDR &xdr, ssop_reply &reply);
bool xdr_put_reply(XDR &xdr, const ids_reply &reply);
bool xdr_get_reply(XDR &xdr, ids_reply &reply);
bool xdr_put_reply(XDR &xdr, const clidmap_reply &reply);
bool xdr_get_reply(XDR &xdr, clidmap_reply &reply);
bool xdr_put_reply(XDR &xdr, const volops_reply &reply);
bool xdr_get_reply(XDR &xdr, volops_reply &reply);
bool xdr_put_reply(XDR &xdr, const bools_reply &reply);
bool xdr_get_reply(XDR &xdr, bools_reply &reply);

}  // namespace qvr
