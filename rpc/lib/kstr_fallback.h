// Stepping down to a weaker flavour when a server rejects a credential.
#pragma once

#include "client.h"

namespace qvr {

// Replaces the handle's AUTH by the next weaker flavour that its mask allows. False when there is
// none: the handle keeps the flavour that it has.
bool kstr_fall_back(CLIENT &client);

}  // namespace qvr
