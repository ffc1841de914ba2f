// The credential blob that an auth server issues: opaque to the client but for its checksum and the
// name of the server.
#pragma once

#include <string>
#include <string_view>

#include "errobj.h"

namespace qvr {

inline constexpr std::size_t KSTR_KEY_SIZE = 32;
inline constexpr std::uint32_t KSTR_SERVER_NAME_MAX = 255;

// Hides or unhides: byte i is XORed with key byte i mod 32. The key has 32 bytes.
void kstr_blob_mask(std::string &blob, std::string_view key);
// Tests the checksum word of a blob that is in the clear; an old server's 0 passes. The error is
// message 85100.
errobj_t *kstr_blob_check(const std::string &blob);
// Unhides and tests.
errobj_t *kstr_blob_decode(std::string &blob, std::string_view key);
// Writes the checksum word of a blob in the clear. What auth servers do.
void kstr_blob_seal(std::string &blob);
// The server that issued the blob; empty when it names none.
std::string kstr_blob_server(std::string_view blob);

}  // namespace qvr
