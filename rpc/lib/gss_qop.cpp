#include "gss_qop.h"

#include <openssl/crypto.h>
#include <openssl/rand.h>

#include <cstring>
#include <utility>

#include "debug_words.h"
#include "gss_context.h"
#include "gss_crypto.h"
#include "gss_status.h"
#include "msg.h"
#include "posix_cksum.h"
#include "xdr.h"

namespace qvr {

namespace {

// Where the parts of a wrapped message lie.
constexpr std::size_t iv_at = 4, cipher_at = iv_at + GSS_IV_SIZE;
constexpr std::size_t size_word = 4;

const qop_row *row_of(std::uint32_t qop);

bool same_bytes(std::string_view a, std::string_view b) {
  return a.size() == b.size() && CRYPTO_memcmp(a.data(), b.data(), a.size()) == 0;
}

std::string_view text_of(const std::uint8_t *bytes, std::size_t size) {
  return {reinterpret_cast<const char *>(bytes), size};
}

errobj_t *crypto_failed() {
  return err_create(0, GSS_FAILED_CODE, "The crypto library failed");
}

// QOP_CHECKSUM.

std::string checksum_of(std::uint32_t seq, std::string_view input) {
  std::uint8_t word[4];
  XDR::store32(word, seq);
  std::uint32_t crc = posix_cksum_add(posix_cksum_add(0, input), text_of(word, sizeof word));
  XDR::store32(word, posix_cksum_end(crc, input.size()));
  return std::string(text_of(word, sizeof word));
}

errobj_t *checksum_get_mic(gss_ctx &context, std::uint32_t seq, std::string_view input,
                           std::string &token) {
  if (context.qop != row_of(QOP_CHECKSUM)) return GSS_UNEXPECTED("Incorrect get_mic function");
  token = checksum_of(seq, input);
  return nullptr;
}

errobj_t *checksum_verify_mic(gss_ctx &context, std::uint32_t seq, std::string_view input,
                              std::string_view token) {
  if (context.qop != row_of(QOP_CHECKSUM)) return GSS_UNEXPECTED("Incorrect verify_mic function");
  return same_bytes(checksum_of(seq, input), token) ? nullptr : gss_mac_mismatch();
}

errobj_t *copy(gss_ctx &, std::string_view input, gss_buffer &output) {
  output.make_room(input.size() + 1);
  output.size = input.size();
  if (!input.empty()) std::memcpy(output.data.get(), input.data(), input.size());
  return nullptr;
}

// QOP_SECURE.

errobj_t *secure_get_mic(gss_ctx &context, std::uint32_t seq, std::string_view input,
                         std::string &token) {
  if (context.qop != row_of(QOP_SECURE)) return GSS_UNEXPECTED("Incorrect get_mic function");
  std::uint8_t digest[GSS_MAC_SIZE];
  if (!gss_crypto::of_thread().mac(context.key_ref(), seq, input.data(), input.size(), digest)) {
    return crypto_failed();
  }
  token.assign(text_of(digest, sizeof digest));
  return nullptr;
}

errobj_t *secure_verify_mic(gss_ctx &context, std::uint32_t seq, std::string_view input,
                            std::string_view token) {
  if (context.qop != row_of(QOP_SECURE)) return GSS_UNEXPECTED("Incorrect verify_mic function");
  std::uint8_t digest[GSS_MAC_SIZE];
  if (!gss_crypto::of_thread().mac(context.key_ref(), seq, input.data(), input.size(), digest)) {
    return crypto_failed();
  }
  return same_bytes(text_of(digest, sizeof digest), token) ? nullptr : gss_mac_mismatch();
}

errobj_t *secure_wrap(gss_ctx &context, std::string_view input, gss_buffer &output) {
  // The longest whose wrapped length a word can tell.
  if (input.size() > UINT32_MAX - 64) {
    return err_create(0, GSS_FAILED_CODE, "The data is too long to be wrapped");
  }
  std::size_t filled = (input.size() + GSS_BLOCK_SIZE - 1) / GSS_BLOCK_SIZE * GSS_BLOCK_SIZE;
  std::size_t mac_at = cipher_at + filled;
  output.size = mac_at + GSS_MAC_SIZE + size_word;
  output.make_room(output.size);
  std::uint8_t *out = output.data.get();
  XDR::store32(out, static_cast<std::uint32_t>(input.size()));
  std::uint8_t digest[GSS_MAC_SIZE];
  gss_crypto &crypto = gss_crypto::of_thread();
  gss_key_ref key = context.key_ref();
  if (RAND_bytes(out + iv_at, GSS_IV_SIZE) != 1 ||
      !crypto.encrypt_filled(key, out + iv_at, reinterpret_cast<const std::uint8_t *>(input.data()),
                             input.size(), out + cipher_at) ||
      !crypto.mac(key, context.wrap_seq(), out, mac_at, digest)) {
    output = {};
    return crypto_failed();
  }
  std::memcpy(out + mac_at, digest, sizeof digest);
  XDR::store32(out + mac_at + GSS_MAC_SIZE, GSS_MAC_SIZE);
  return nullptr;
}

errobj_t *bad_length(std::size_t size) {
  return err_create(
      201735, 939504,
      "Unwrap failure: The HMAC data did not pass an integrity check OR input buffer "
      "exceeds max buffer size. Max buffer size: %lu, Source buffer length : %lu\n",
      {{MSG_ARG_LONG, msg_arg_ulong(GSS_UNWRAP_MAX)}, {MSG_ARG_LONG, msg_arg_ulong(size)}});
}

errobj_t *secure_unwrap(gss_ctx &context, std::string_view input, gss_buffer &output) {
  KS_DEBUG(7, "qop_secure_unwrap() - src->length = %lu\n",
           static_cast<unsigned long>(input.size()));
  gss_buffer plain = std::exchange(output, {});
  if (input.size() < size_word || input.size() > GSS_UNWRAP_MAX) return bad_length(input.size());
  auto *bytes = reinterpret_cast<const std::uint8_t *>(input.data());
  std::uint64_t mac_size = XDR::load32(bytes + input.size() - size_word);
  if (input.size() <= size_word + mac_size) return bad_length(input.size());
  auto mac_at = static_cast<std::size_t>(input.size() - size_word - mac_size);
  if (errobj_t *error =
          secure_verify_mic(context, context.wrap_seq(), input.substr(0, mac_at),
                            input.substr(mac_at, static_cast<std::size_t>(mac_size)))) {
    return error;
  }
  // From here on it is what the holder of the key sent, who may still be wrong about lengths.
  if (mac_at < cipher_at) return bad_length(input.size());
  std::uint64_t cipher_size = mac_at - cipher_at, size = XDR::load32(bytes);
  if (cipher_size % GSS_BLOCK_SIZE != 0 || size > cipher_size ||
      (cipher_size != 0 && size + GSS_BLOCK_SIZE <= cipher_size)) {
    return bad_length(input.size());
  }
  auto length = static_cast<std::size_t>(cipher_size);
  plain.make_room(2 * length + 1);
  if (!gss_crypto::of_thread().decrypt(context.key_ref(), bytes + iv_at, bytes + cipher_at, length,
                                       plain.data.get())) {
    return crypto_failed();
  }
  plain.size = static_cast<std::size_t>(size);
  output = std::move(plain);
  return nullptr;
}

constexpr qop_row qop_table[] = {
    {QOP_CHECKSUM, "QOP_CHECKSUM", 0, checksum_get_mic, checksum_verify_mic, copy, copy},
    {QOP_SECURE, "QOP_SECURE", GSS_SECURE_KEY_SIZE, secure_get_mic, secure_verify_mic, secure_wrap,
     secure_unwrap},
};
constexpr std::uint32_t supported[] = {QOP_SECURE};

const qop_row *row_of(std::uint32_t qop) {
  for (const qop_row &row : qop_table) {
    if (row.qop == qop) return &row;
  }
  return nullptr;
}

}  // namespace

errobj_t *gss_mac_mismatch() {
  return err_create(1001, 23007, "The data did not pass an integrity check: the MAC did not match");
}

const qop_row *qop_find(std::uint32_t qop) {
  const qop_row *row = row_of(qop);
  if (row == nullptr) KS_UNEXPECTED("Could not find qop entry in table");
  return row;
}

std::span<const std::uint32_t> gss_supported_qops() {
  return supported;
}

const qop_row *gss_choose_qop(std::span<const std::uint32_t> offered) {
  const qop_row *best = nullptr;
  for (std::uint32_t qop : offered) {
    const qop_row *row = row_of(qop);
    if (row != nullptr && (best == nullptr || row->qop > best->qop)) best = row;
  }
  return best;
}

}  // namespace qvr
