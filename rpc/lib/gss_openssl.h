// The one-time set-up of OpenSSL for the security layer.
#pragma once

#include "errobj.h"

namespace qvr {

// Sets OpenSSL up at the first call of the process: strings, the installation's "openssl.cnf", the
// FIPS provider when the marker file "fipsenable" asks for it. BTLS_NOOP in the environment skips
// all of it. Failures are told by messages once; from then on every call answers with an error
// object (89616). Null when the library is ready. Any thread.
errobj_t *btls_init();

// Before the first btls_init: the marker file is not looked for.
void btls_skip_fips();

// The steps themselves, for btls_init and for tests: false when one failed, which messages have
// told.
bool btls_set_up(bool with_fips);

}  // namespace qvr
