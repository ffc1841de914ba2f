// Login to a daemon with a user's password in the place of the authentication exchange.
#pragma once

#include <string_view>

#include "client.h"
#include "errobj.h"

namespace qvr {

// Asks the daemon for a challenge, makes the response from the password's digest and attaches login
// credentials with user, response and domain to the handle. The password is wiped from what this
// keeps. An error object or null. The handle's thread.
errobj_t *kstr_login(CLIENT &client, std::string_view user, std::string_view password,
                     std::string_view domain);

}  // namespace qvr
