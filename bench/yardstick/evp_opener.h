// The least that verifying and deciphering a fragment of the encrypted channel takes: OpenSSL's
// calls alone, with contexts that are keyed once.
#pragma once

#include <openssl/core_names.h>
#include <openssl/evp.h>

#include <memory>
#include <string_view>
#include <vector>

namespace qvr::bench {

class evp_opener {
 public:
  // `most`: bytes of the longest ciphertext. The cipher takes the first 32 bytes of the key.
  evp_opener(std::string_view key, std::size_t most) : plain_(most + 16) {
    auto *bytes = reinterpret_cast<const unsigned char *>(key.data());
    EVP_MAC *hmac = EVP_MAC_fetch(nullptr, "HMAC", nullptr);
    mac_.reset(EVP_MAC_CTX_new(hmac));
    EVP_MAC_free(hmac);
    char digest[] = "SHA1";
    OSSL_PARAM params[] = {
        OSSL_PARAM_construct_utf8_string(OSSL_MAC_PARAM_DIGEST, digest, sizeof digest - 1),
        OSSL_PARAM_construct_end()};
    EVP_MAC_init(mac_.get(), bytes, key.size(), params);
    EVP_CipherInit_ex(cipher_.get(), EVP_aes_256_cbc(), nullptr, bytes, nullptr, 0);
    EVP_CIPHER_CTX_set_padding(cipher_.get(), 0);
  }

  // A byte that depends on all of the work.
  unsigned open(std::string_view authenticated, const unsigned char *iv, std::string_view cipher) {
    unsigned char made[20];
    std::size_t made_size = 0;
    int size = 0;
    EVP_MAC_init(mac_.get(), nullptr, 0, nullptr);
    EVP_MAC_update(mac_.get(), bytes_of(authenticated), authenticated.size());
    EVP_MAC_final(mac_.get(), made, &made_size, sizeof made);
    EVP_CipherInit_ex(cipher_.get(), nullptr, nullptr, nullptr, iv, 0);
    EVP_CipherUpdate(cipher_.get(), plain_.data(), &size, bytes_of(cipher),
                     static_cast<int>(cipher.size()));
    return made[0] + 0u + plain_[0];
  }

 private:
  static const unsigned char *bytes_of(std::string_view text) {
    return reinterpret_cast<const unsigned char *>(text.data());
  }
  struct free_t {
    void operator()(EVP_MAC_CTX *context) const { EVP_MAC_CTX_free(context); }
    void operator()(EVP_CIPHER_CTX *context) const { EVP_CIPHER_CTX_free(context); }
  };
  std::unique_ptr<EVP_MAC_CTX, free_t> mac_;
  std::unique_ptr<EVP_CIPHER_CTX, free_t> cipher_{EVP_CIPHER_CTX_new()};
  std::vector<unsigned char> plain_;
};

}  // namespace qvr::bench
