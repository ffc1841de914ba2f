// Change records, and the lists of names.
#include <algorithm>

#include "mmdb_stubs.h"
#include "queries.h"
#include "take_list.h"

namespace qvr {

namespace {

struct client_row_t {
  std::string name;
  ksui id;
};

// One attribute a name, in the order of attribute names; a name that comes again adds its value.
// The null identifier is none.
attrlist to_attributes(std::vector<client_row_t> rows) {
  std::ranges::stable_sort(rows, [](const client_row_t &a, const client_row_t &b) {
    return attr_name_cmp(a.name, b.name) < 0;
  });
  attrlist list;
  for (client_row_t &row : rows) {
    if (list.empty() || attr_name_cmp(list.back().name, row.name) != 0)
      list.push_back({std::move(row.name), {}});
    if (!row.id.is_null()) list.back().values.push_back(ksui_text(row.id, ksui_form::long_form));
  }
  return list;
}

ss_list ask_clients(std::string_view client, std::string_view name) {
  return mif_run<ss_list>([&](mif_t &mif) {
    return take_ss_list(mif, mmdb_get_clients(*mif.mif_clnt, {client, name}));
  });
}

}  // namespace

hist_list get_history(const history_query_t &query) {
  return mif_run<hist_list>(
      [&](mif_t &mif) { return take_hist_list(mif, mmdb_get_history(*mif.mif_clnt, query)); });
}

attrlist get_client_names() {
  std::vector<client_row_t> rows;
  for (const ss_t *client : ask_clients({}, {}).rows)
    rows.push_back({std::string(client->client), client->clientid});
  return to_attributes(std::move(rows));
}

vallist get_save_names(std::string_view client, std::string_view name) {
  vallist names;
  ss_list list = ask_clients(client, name);
  for (const ss_t *ss : list.rows) names.emplace_back(client.empty() ? ss->client : ss->name);
  auto exact = [](const std::string &a, const std::string &b) { return a.compare(b); };
  vallist_sort(names, client.empty() ? vallist_cmp() : vallist_cmp(exact), true);
  return names;
}

}  // namespace qvr
