// From a reply to the list that a query hands out.
#pragma once

#include <optional>

#include "mif_state.h"
#include "mmdb_replies.h"

namespace qvr {

// The list of a reply. Any failure, of the call or in the reply, becomes the session's last error.
ss_list take_ss_list(mif_t &mif, std::optional<ss_reply> reply);
ss_list take_ss_list(mif_t &mif, std::optional<ssr_reply> reply, int &more);
vol_list take_vol_list(mif_t &mif, std::optional<vol_reply> reply);
hist_list take_hist_list(mif_t &mif, std::optional<hist_reply> reply);

// Puts the names of save sets through the translation of index names when the session is set so.
void translate_names(const mif_t &mif, ss_list &list);

// Cuts a list to its first record.
template <class Record>
record_list<Record> first_only(record_list<Record> list) {
  if (list.rows.size() > 1) list.rows.resize(1);
  return list;
}

}  // namespace qvr
