#include "kstr_blob.h"

#include "debug_words.h"
#include "posix_cksum.h"
#include "xdr.h"

namespace qvr {

namespace {

constexpr std::size_t checksum_at = 12;
constexpr std::size_t name_at = 16;

std::uint8_t *bytes_of(std::string &blob) {
  return reinterpret_cast<std::uint8_t *>(blob.data());
}

errobj_t *corrupted() {
  return err_create(85100, 25007,
                    "The authentication credential was corrupted on decoding the credential, the "
                    "checksums do not match.\n");
}

}  // namespace

void kstr_blob_mask(std::string &blob, std::string_view key) {
  for (std::size_t i = 0; i < blob.size() && !key.empty(); i++) {
    blob[i] = static_cast<char>(blob[i] ^ key[i % KSTR_KEY_SIZE % key.size()]);
  }
}

errobj_t *kstr_blob_check(const std::string &blob) {
  if (blob.size() < name_at) return corrupted();
  std::string copy = blob;
  std::uint32_t stated = XDR::load32(bytes_of(copy) + checksum_at);
  if (stated == 0) {
    KS_DEBUG(3, "RPC Authentication: an old auth server issued the cred, it is not checksummed\n");
    return nullptr;
  }
  XDR::store32(bytes_of(copy) + checksum_at, 0);
  return posix_cksum(copy) == stated ? nullptr : corrupted();
}

errobj_t *kstr_blob_decode(std::string &blob, std::string_view key) {
  kstr_blob_mask(blob, key);
  return kstr_blob_check(blob);
}

void kstr_blob_seal(std::string &blob) {
  if (blob.size() < name_at) return;
  XDR::store32(bytes_of(blob) + checksum_at, 0);
  XDR::store32(bytes_of(blob) + checksum_at, posix_cksum(blob));
}

std::string kstr_blob_server(std::string_view blob) {
  std::string name;
  if (blob.size() <= name_at) return name;
  xdr_memory_reader in(blob.substr(name_at));
  if (!in.get_counted(name, KSTR_SERVER_NAME_MAX)) name.clear();
  return name;
}

}  // namespace qvr
