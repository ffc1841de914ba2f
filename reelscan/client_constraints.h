// From the client names of -c to constraints.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "request.h"
#include "settings.h"

namespace qvr {

struct client_outcome_t {
  std::optional<std::string> unknown;  // a name, even the empty one, that is known nowhere
  const char *refusal = nullptr;       // the text of the query parser
  bool good() const { return !unknown && refusal == nullptr; }
};

// Makes a constraint of each client that the names of -c mean, once each, the client named last in
// front. `client_by_name` gives the canonical client name or an empty text.
client_outcome_t add_client_constraints(const settings_t &settings,
                                        std::string (*client_by_name)(std::string_view),
                                        std::string (*name_to_id)(std::string_view),
                                        request_t &request);

}  // namespace qvr
