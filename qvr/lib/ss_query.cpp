// Save sets by client, name, time and level, and the fan-out over all clients.
#include "client_identity.h"
#include "mmdb_stubs.h"
#include "msg.h"
#include "queries.h"
#include "take_list.h"

namespace qvr {

namespace {

ss_list one_call(mif_t &mif, const ss_query_t &query) {
  if (!is_index_name(query.name)) return take_ss_list(mif, mmdb_get_ss(*mif.mif_clnt, query));
  // The translation asks the client id map over this same session, which may lose its connection.
  std::string name = index_name_to_id(query.name);
  if (mif.mif_clnt == nullptr && mif_connect() != MIF_CONNECTED) return {};
  ss_query_t sent = query;
  sent.name = name;
  return take_ss_list(mif, mmdb_get_ss(*mif.mif_clnt, sent));
}

// No form of the procedure speaks of all clients.
ss_list client_by_client(mif_t &mif, const ss_query_t &query) {
  ss_list clients = take_ss_list(mif, mmdb_get_clients(*mif.mif_clnt, {}));
  std::vector<ss_list> gathered;
  for (const ss_t *client : clients.rows) {
    if (client->client.empty()) {
      msg_print(114984, 82002, MSG_STDERR,
                "Found the hostname missing in the save set while fetching the save sets from the "
                "media database.\n");
      continue;
    }
    ss_query_t each;
    each.all = true;
    each.client = client->client;
    each.attrs = query.attrs;
    each.level = query.level;
    each.full = query.full;
    // The translation of the names before may have lost the connection, or left an error.
    if (mif_connect() != MIF_CONNECTED) return {};
    ss_list list = take_ss_list(mif, mmdb_get_ss(*mif.mif_clnt, each));
    if (!list.empty())
      gathered.push_back(std::move(list));
    else if (mif.mif_error.code != 0)
      return {};
  }
  ss_list all;
  for (auto list = gathered.rbegin(); list != gathered.rend(); ++list) all.append(std::move(*list));
  return all;
}

}  // namespace

ss_list get_ss_query(const ss_query_t &query) {
  bool all_clients = query.all && query.client.empty() && query.name.empty() && query.time == 0;
  return mif_run<ss_list>([&](mif_t &mif) {
    return all_clients ? client_by_client(mif, query) : one_call(mif, query);
  });
}

}  // namespace qvr
