#include "take_list.h"

#include "client_identity.h"
#include "debug_words.h"

namespace qvr {

namespace {

template <class Reply>
auto take(mif_t &mif, std::optional<Reply> &reply) {
  decltype(reply->list) list;
  if (!reply) {
    if (const errobj_t *error = rpc_status_error(mif)) mif_store_error(error);
  } else if (reply->status != MMDB_OK) {
    if (reply->error == nullptr)
      KS_DEBUG(1, "The media database answered with status %d and no error.\n", reply->status);
    mif_store_error(reply->error);
  } else {
    list = std::move(reply->list);
  }
  return list;
}

}  // namespace

void translate_names(const mif_t &mif, ss_list &list) {
  if (!mif.mif_clientid_names) return;
  std::shared_ptr<arena> page;
  for (ss_t *ss : list.rows) {
    std::string name = index_name_to_client(ss->name, true);
    if (name.empty()) continue;
    if (page == nullptr) page = std::make_shared<arena>();
    ss->name = page->copy(name);
  }
  if (page != nullptr) list.pages.push_back(std::move(page));
}

ss_list take_ss_list(mif_t &mif, std::optional<ss_reply> reply) {
  ss_list list = take(mif, reply);
  translate_names(mif, list);
  return list;
}

ss_list take_ss_list(mif_t &mif, std::optional<ssr_reply> reply, int &more) {
  more = reply && (reply->ssr_more == 1 || reply->ssr_more == 2) ? reply->ssr_more : 0;
  if (reply && reply->status != MMDB_OK) KS_DEBUG(2, "In ssr_to_sl func: ssr->status != MMDB_OK\n");
  ss_list list = take(mif, reply);
  translate_names(mif, list);
  return list;
}

vol_list take_vol_list(mif_t &mif, std::optional<vol_reply> reply) {
  return take(mif, reply);
}

hist_list take_hist_list(mif_t &mif, std::optional<hist_reply> reply) {
  return take(mif, reply);
}

}  // namespace qvr
