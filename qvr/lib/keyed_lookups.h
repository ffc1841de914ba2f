// Look-ups by key that tell what was not found and may try again for a while.
//
// Each runs on the calling thread's session. `seconds` is how long a lost connection is worth
// waiting for; 0 makes one attempt. Null is success; an error object lies in the thread's ring. A
// null argument that is required is told by its own message.
#pragma once

#include <cstdint>
#include <string_view>

#include "errobj.h"
#include "mmdb_replies.h"
#include "queries.h"
#include "records.h"

namespace qvr {

// One save set.
errobj_t *get_ss(const ksui *ssid, bool full, ss_list *found, std::uint32_t seconds);
errobj_t *get_ss_bytime(std::string_view client, std::int64_t savetime, bool full, ss_list *found,
                        std::uint32_t seconds);
// One or more.
errobj_t *get_ss_byname(const ss_query_t &query, ss_list *found, std::uint32_t seconds);
// Status MMDB_OK with a list that may be empty, or MMDB_LOCAL_ERROR with the error.
errobj_t *get_ss_range(const ss_page_t *page, ssr_reply *reply, std::uint32_t seconds);

// One volume.
errobj_t *get_volume(const ksui *volid, bool full, vol_list *found, std::uint32_t seconds);
// One or more.
errobj_t *get_volumes_byname(std::string_view name, bool full, vol_list *found,
                             std::uint32_t seconds);
// The first of them; that there are more is told on the error stream.
errobj_t *get_volume_byname(std::string_view name, bool full, vol_list *found,
                            std::uint32_t seconds);

}  // namespace qvr
