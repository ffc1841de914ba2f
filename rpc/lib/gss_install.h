// Puts the security layer behind the seam of gss_hooks.h.
#pragma once

namespace qvr {

// At start, before other threads run. From then on flavour binding uses RPCSEC_GSS where a method
// mask allows it.
void gss_install();

}  // namespace qvr
