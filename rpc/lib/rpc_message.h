// The call and reply headers of ONC RPC version 2 (RFC 5531, section 9).
#pragma once

#include <array>
#include <cstdint>
#include <string_view>

#include "auth_handle.h"
#include "client.h"
#include "xdr.h"

namespace qvr {

// The words of a call that stay the same from call to call, as they lie on the wire: xid,
// direction, RPC version, program, version.
class rpc_call_header {
 public:
  rpc_call_header(std::uint32_t xid, std::uint32_t program, std::uint32_t version);
  // The xid of the next call: one below the last one's.
  std::uint32_t next_xid();
  std::uint32_t xid() const { return word(0); }
  std::uint32_t program() const { return word(3); }
  std::uint32_t version() const { return word(4); }
  void set_program(std::uint32_t program) { set_word(3, program); }
  std::string_view bytes() const {
    return {reinterpret_cast<const char *>(bytes_.data()), bytes_.size()};
  }

 private:
  std::uint32_t word(std::size_t at) const { return XDR::load32(bytes_.data() + 4 * at); }
  void set_word(std::size_t at, std::uint32_t value) {
    XDR::store32(bytes_.data() + 4 * at, value);
  }
  std::array<std::uint8_t, 20> bytes_;
};
// tv_usec ^ pid ^ tv_sec.
std::uint32_t rpc_first_xid();

struct rpc_reply_t {
  bool accepted = false;
  opaque_auth verifier;
  std::uint32_t status = 0;  // of the acceptance or the rejection
  std::uint32_t low = 0, high = 0;
  std::uint32_t why = 0;
};

// Reads what follows the xid of a reply, up to the results. False for anything but a reply.
bool xdr_get_reply(XDR &xdr, rpc_reply_t &reply);
// How the reply ends the call, by the published rules.
void rpc_reply_error(const rpc_reply_t &reply, rpc_err_t &error);

}  // namespace qvr
