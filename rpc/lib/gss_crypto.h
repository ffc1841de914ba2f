// The calling thread's HMAC-SHA-1 and AES-256-CBC states. They are fetched once and stay keyed, so
// that a fragment costs no look-up, no allocation and no key schedule as long as the thread stays
// with one session.
#pragma once

#include <cstdint>
#include <memory>
#include <string_view>

#include <openssl/evp.h>

namespace qvr {

inline constexpr std::size_t GSS_MAC_SIZE = 20;
inline constexpr std::size_t GSS_IV_SIZE = 16;
inline constexpr std::size_t GSS_BLOCK_SIZE = 16;
inline constexpr std::size_t GSS_CIPHER_KEY_SIZE = 32;

// A key and the number that tells it from every other key of the process.
struct gss_key_ref {
  std::uint64_t id;
  std::string_view key;
};
std::uint64_t gss_new_key_id();

// Belongs to one thread and dies with its RPC state. Every operation answers false when OpenSSL
// fails.
class gss_crypto {
 public:
  gss_crypto();
  ~gss_crypto();
  gss_crypto(const gss_crypto &) = delete;
  gss_crypto &operator=(const gss_crypto &) = delete;

  // The thread's.
  static gss_crypto &of_thread();

  // HMAC over `seq` in big-endian order and the bytes.
  bool mac(const gss_key_ref &key, std::uint32_t seq, const void *bytes, std::size_t size,
           std::uint8_t (&digest)[GSS_MAC_SIZE]);
  // Without padding; `size` is a multiple of the block's, `to` has as many bytes.
  bool encrypt(const gss_key_ref &key, const std::uint8_t *iv, const std::uint8_t *from,
               std::size_t size, std::uint8_t *to);
  // The same with a plaintext that need not end at a block's end: it is filled up with zeros.
  bool encrypt_filled(const gss_key_ref &key, const std::uint8_t *iv, const std::uint8_t *from,
                      std::size_t size, std::uint8_t *to);
  bool decrypt(const gss_key_ref &key, const std::uint8_t *iv, const std::uint8_t *from,
               std::size_t size, std::uint8_t *to);
  // Wipes what is left of the key in the thread's states. Also while the thread ends.
  static void forget(std::uint64_t id);

 private:
  struct free_mac {
    void operator()(EVP_MAC_CTX *context) const { EVP_MAC_CTX_free(context); }
  };
  struct free_cipher {
    void operator()(EVP_CIPHER_CTX *context) const { EVP_CIPHER_CTX_free(context); }
  };
  struct cipher_t {
    std::unique_ptr<EVP_CIPHER_CTX, free_cipher> context;
    std::uint64_t key_id = 0;
  };
  void drop(std::uint64_t id);
  bool ready_mac(const gss_key_ref &key);
  static bool ready_cipher(cipher_t &cipher, const gss_key_ref &key, const std::uint8_t *iv,
                           bool encrypting);

  std::unique_ptr<EVP_MAC_CTX, free_mac> mac_;
  std::uint64_t mac_key_id_ = 0;
  cipher_t encrypting_, decrypting_;
};

}  // namespace qvr
