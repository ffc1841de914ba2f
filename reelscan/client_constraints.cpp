#include "client_constraints.h"

#include <algorithm>

#include "query_spec.h"
#include "spec_reader.h"

namespace qvr {

client_outcome_t add_client_constraints(const settings_t &settings,
                                        std::string (*client_by_name)(std::string_view),
                                        std::string (*name_to_id)(std::string_view),
                                        request_t &request) {
  std::vector<std::string> canonical_clients;
  for (const std::string &name : settings.client_names) {
    std::string client = client_by_name(name);
    if (client.empty()) return {name, nullptr};
    auto same = [&client](const std::string &other) { return same_word(other, client); };
    if (std::none_of(canonical_clients.begin(), canonical_clients.end(), same)) {
      canonical_clients.insert(canonical_clients.begin(), std::move(client));
    }
  }
  for (const std::string &client : canonical_clients) {
    const char *refusal = parse_query_shortcut('c', client, request.query_constraints, name_to_id);
    if (refusal != nullptr) return {std::nullopt, refusal};
  }
  return {};
}

}  // namespace qvr
