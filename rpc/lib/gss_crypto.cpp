#include "gss_crypto.h"

#include <openssl/core_names.h>

#include <atomic>
#include <climits>
#include <cstring>

#include "rpc_state.h"
#include "secrets.h"
#include "xdr.h"

namespace qvr {

namespace {

// One call takes an int's worth of bytes.
constexpr std::size_t piece_max = std::size_t{1} << 30;

bool run(EVP_CIPHER_CTX *context, const std::uint8_t *from, std::size_t size, std::uint8_t *to) {
  while (size > 0) {
    std::size_t piece = size < piece_max ? size : piece_max;
    int done = 0;
    if (EVP_CipherUpdate(context, to, &done, from, static_cast<int>(piece)) != 1 ||
        static_cast<std::size_t>(done) != piece) {
      return false;
    }
    from += piece;
    to += piece;
    size -= piece;
  }
  return true;
}

// Without a destructor: contexts that die with their thread may ask after the states have gone.
thread_local gss_crypto *states_of_thread = nullptr;

}  // namespace

gss_crypto::gss_crypto() {
  states_of_thread = this;
}

gss_crypto::~gss_crypto() {
  if (states_of_thread == this) states_of_thread = nullptr;
}

std::uint64_t gss_new_key_id() {
  static std::atomic<std::uint64_t> last{0};
  return last.fetch_add(1, std::memory_order_relaxed) + 1;
}

gss_crypto &gss_crypto::of_thread() {
  std::shared_ptr<gss_crypto> &crypto = rpc_thread_state().crypto;
  if (!crypto) crypto = std::make_shared<gss_crypto>();
  return *crypto;
}

bool gss_crypto::ready_mac(const gss_key_ref &key) {
  if (!mac_) {
    EVP_MAC *hmac = EVP_MAC_fetch(nullptr, "HMAC", nullptr);
    if (hmac == nullptr) return false;
    mac_.reset(EVP_MAC_CTX_new(hmac));
    EVP_MAC_free(hmac);
    mac_key_id_ = 0;
    char digest[] = "SHA1";
    OSSL_PARAM params[] = {
        OSSL_PARAM_construct_utf8_string(OSSL_MAC_PARAM_DIGEST, digest, sizeof digest - 1),
        OSSL_PARAM_construct_end()};
    if (!mac_ || EVP_MAC_CTX_set_params(mac_.get(), params) != 1) {
      mac_.reset();
      return false;
    }
  }
  // Without a key the state goes back to where the last key left it.
  if (mac_key_id_ == key.id) return EVP_MAC_init(mac_.get(), nullptr, 0, nullptr) == 1;
  mac_key_id_ = 0;
  if (EVP_MAC_init(mac_.get(), reinterpret_cast<const unsigned char *>(key.key.data()),
                   key.key.size(), nullptr) != 1) {
    return false;
  }
  mac_key_id_ = key.id;
  return true;
}

bool gss_crypto::mac(const gss_key_ref &key, std::uint32_t seq, const void *bytes, std::size_t size,
                     std::uint8_t (&digest)[GSS_MAC_SIZE]) {
  std::uint8_t word[4];
  XDR::store32(word, seq);
  std::size_t made = 0;
  bool done = ready_mac(key) && EVP_MAC_update(mac_.get(), word, sizeof word) == 1 &&
              (size == 0 ||
               EVP_MAC_update(mac_.get(), static_cast<const unsigned char *>(bytes), size) == 1) &&
              EVP_MAC_final(mac_.get(), digest, &made, sizeof digest) == 1 && made == sizeof digest;
  if (!done) mac_.reset();
  return done;
}

bool gss_crypto::ready_cipher(cipher_t &cipher, const gss_key_ref &key, const std::uint8_t *iv,
                              bool encrypting) {
  if (key.key.size() < GSS_CIPHER_KEY_SIZE) return false;
  int way = encrypting ? 1 : 0;
  if (cipher.context && cipher.key_id == key.id) {
    return EVP_CipherInit_ex(cipher.context.get(), nullptr, nullptr, nullptr, iv, way) == 1;
  }
  const EVP_CIPHER *kind = nullptr;
  if (!cipher.context) {
    cipher.context.reset(EVP_CIPHER_CTX_new());
    if (!cipher.context) return false;
    kind = EVP_aes_256_cbc();
  }
  cipher.key_id = 0;
  if (EVP_CipherInit_ex(cipher.context.get(), kind, nullptr,
                        reinterpret_cast<const unsigned char *>(key.key.data()), iv, way) != 1 ||
      EVP_CIPHER_CTX_set_padding(cipher.context.get(), 0) != 1) {
    cipher.context.reset();
    return false;
  }
  cipher.key_id = key.id;
  return true;
}

bool gss_crypto::encrypt(const gss_key_ref &key, const std::uint8_t *iv, const std::uint8_t *from,
                         std::size_t size, std::uint8_t *to) {
  return ready_cipher(encrypting_, key, iv, true) && run(encrypting_.context.get(), from, size, to);
}

bool gss_crypto::encrypt_filled(const gss_key_ref &key, const std::uint8_t *iv,
                                const std::uint8_t *from, std::size_t size, std::uint8_t *to) {
  std::size_t whole = size - size % GSS_BLOCK_SIZE;
  if (!encrypt(key, iv, from, whole, to)) return false;
  if (whole == size) return true;
  std::uint8_t last[GSS_BLOCK_SIZE] = {};
  std::memcpy(last, from + whole, size - whole);
  bool done = run(encrypting_.context.get(), last, sizeof last, to + whole);
  secret_wipe(last, sizeof last);
  return done;
}

bool gss_crypto::decrypt(const gss_key_ref &key, const std::uint8_t *iv, const std::uint8_t *from,
                         std::size_t size, std::uint8_t *to) {
  return ready_cipher(decrypting_, key, iv, false) &&
         run(decrypting_.context.get(), from, size, to);
}

void gss_crypto::forget(std::uint64_t id) {
  if (states_of_thread != nullptr) states_of_thread->drop(id);
}

void gss_crypto::drop(std::uint64_t id) {
  if (mac_key_id_ == id) {
    mac_.reset();
    mac_key_id_ = 0;
  }
  for (cipher_t *cipher : {&encrypting_, &decrypting_}) {
    if (cipher->key_id == id) *cipher = {};
  }
}

}  // namespace qvr
