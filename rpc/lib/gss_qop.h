// Qualities of protection: how a context makes message integrity codes and wraps data.
#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <string_view>

#include "errobj.h"

namespace qvr {

class gss_ctx;

enum gss_qop : std::uint32_t {
  QOP_CHECKSUM = 1,  // the CRC of POSIX cksum; wrapping copies
  QOP_SECURE = 2,    // HMAC-SHA-1; wrapping enciphers with AES-256-CBC
};
inline constexpr std::size_t GSS_SECURE_KEY_SIZE = 128;
// The longest input that QOP_SECURE unwraps.
inline constexpr std::size_t GSS_UNWRAP_MAX = 0x4000000;

// Bytes that an operation made; not filled before they are written.
struct gss_buffer {
  std::unique_ptr<std::uint8_t[]> data;
  std::size_t size = 0;
  std::size_t room = 0;  // bytes that `data` has at least
  // Memory for so many bytes: what is there where it is enough, else new.
  void make_room(std::size_t wanted) {
    if (data != nullptr && room >= wanted) return;
    data = std::make_unique_for_overwrite<std::uint8_t[]>(wanted);
    room = wanted;
  }
  std::string_view view() const { return {reinterpret_cast<const char *>(data.get()), size}; }
};

// Every operation gives an error object or null. `seq` enters the code; it counts nothing.
struct qop_row {
  std::uint32_t qop;
  const char *name;
  std::size_t key_size;
  errobj_t *(*get_mic)(gss_ctx &context, std::uint32_t seq, std::string_view input,
                       std::string &token);
  // In constant time once the length is right.
  errobj_t *(*verify_mic)(gss_ctx &context, std::uint32_t seq, std::string_view input,
                          std::string_view token);
  errobj_t *(*wrap)(gss_ctx &context, std::string_view input, gss_buffer &output);
  // May use the memory that the buffer has; a failure leaves it without any.
  errobj_t *(*unwrap)(gss_ctx &context, std::string_view input, gss_buffer &output);
};

// Null for a value that has no row, which is logged.
const qop_row *qop_find(std::uint32_t qop);
// What is offered in a negotiation, and the highest of what is offered that has a row; null when
// none has.
std::span<const std::uint32_t> gss_supported_qops();
const qop_row *gss_choose_qop(std::span<const std::uint32_t> offered);

// Message 1001.
errobj_t *gss_mac_mismatch();

}  // namespace qvr
