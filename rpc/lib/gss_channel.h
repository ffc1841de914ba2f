// The encrypted channel: what the record stream calls to encipher and decipher its fragments.
#pragma once

#include <memory>

#include "gss_context.h"
#include "record_stream.h"

namespace qvr {

// What the stream's calls work on. The stream owns a share of it; the AUTH that made it tells it
// when the context is gone, and from then on nothing passes.
struct gss_channel {
  std::shared_ptr<gss_ctx> context;  // null: gone
  std::int64_t expiry = 0;           // seconds since 1970; 0: never
  void *owner = nullptr;             // argument of the next
  // A control message announces that the peer has lost the context. An error object ends the
  // connection.
  errobj_t *(*lost)(void *owner) = nullptr;

  // Memory of deciphered fragments goes round: what the stream has, and what it gave back.
  std::uint8_t *lent = nullptr;
  std::size_t lent_room = 0;
  gss_buffer spare;
};

// Seconds before the end of a context when it counts as about to expire.
inline constexpr std::int64_t GSS_EXPIRY_MARGIN = 10;

xdrrec_crypt_ops gss_channel_ops(const std::shared_ptr<gss_channel> &channel);

}  // namespace qvr
