// Choosing the request of a plan.
#pragma once

#include "plan.h"

namespace qvr {

inline constexpr int CODE_SAVE_SET_FLAGS = 3, CODE_SAVETIME = 51, CODE_GROUP = 53, CODE_LEVEL = 55,
                     CODE_CLIENT = 57, CODE_NAME = 61, CODE_ANNOTATION = 65, CODE_BUNDLE = 69,
                     CODE_CHECKPOINT_ID = 75, CODE_CHECKPOINT_SEQ = 77, CODE_DEVICELESS = 89,
                     CODE_LOCATION = 102, CODE_FAMILY = 104, CODE_TYPE = 106, CODE_POOL = 112,
                     CODE_VOLUME_FLAGS = 114, CODE_VOLUME = 150, CODE_BARCODE = 152,
                     CODE_VOLID = 160, CODE_NSAVETIME = 171, CODE_SSID = 173;
inline constexpr int HIGHEST_ATTRIBUTE_KEY = 110;

// The text of a constraint that a request can carry: a single one that is not empty, since an empty
// one asks for absence. Null when there is none.
const std::string *sent_text(const query_constraints_t &constraints, int code);

// The request by attributes. False when it is not narrow enough; then the plan has no request yet.
// It may change the needs, and it widens an exact "level=full".
bool plan_attribute_request(const plan_facts_t &facts, query_constraints_t &constraints,
                            plan_t &plan);
// The request by identifier or by exact save time.
void plan_key_request(const query_constraints_t &constraints, plan_t &plan);
// The request for volumes; the key becomes 0 when it selects none.
void plan_volume_request(const query_constraints_t &constraints, plan_t &plan);

// Decides what is not tested again.
void plan_left_out(const query_constraints_t &constraints, plan_t &plan);

}  // namespace qvr
