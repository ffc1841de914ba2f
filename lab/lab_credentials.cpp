#include "lab_credentials.h"

#include <openssl/evp.h>

#include <random>

#include "app_identity.h"
#include "auth_handle.h"
#include "lab_reply.h"
#include "posix_cksum.h"
#include "xdr.h"

namespace qvr {

namespace {

// Tags of the body that AUTH_KSTR credentials and verifiers hold.
enum kstr_tag : std::uint32_t {
  TAG_FULL = 0,
  TAG_SHORT = 1,
  TAG_LOST = 2,
  TAG_LOGIN = 3,
  TAG_SHORT_NO_EXPIRY = 4,
  TAG_CHALLENGE = 5,
};

constexpr std::size_t CHECKSUM_AT = 12, NAME_AT = 16;
constexpr std::size_t SEAL_SIZE = 20, SERIAL_SIZE = 8;
constexpr std::size_t SHORTS_MAX = 65536;
// Makes a credential longer than any call and any application token takes.
constexpr std::size_t LONG_FILLER = 70000;

std::string_view key_of(std::uint32_t application) {
  return application == REELSCAN_APPLICATION ? REELSCAN_PROCESS_KEY : std::string_view();
}

void hide(std::string &blob, std::string_view key) {
  for (std::size_t i = 0; i < blob.size(); i++)
    blob[i] = static_cast<char>(blob[i] ^ key[i % key.size()]);
}

void put_checksum(std::string &blob, std::uint32_t sum) {
  XDR::store32(reinterpret_cast<std::uint8_t *>(blob.data()) + CHECKSUM_AT, sum);
}

bool checksum_holds(std::string blob) {
  std::uint32_t sum =
      XDR::load32(reinterpret_cast<const std::uint8_t *>(blob.data()) + CHECKSUM_AT);
  put_checksum(blob, 0);
  return sum == 0 || sum == posix_cksum(blob);
}

std::string word_body(std::uint32_t tag, std::uint32_t word) {
  lab_reply body;
  body.put_u32(tag);
  body.put_u32(word);
  return body.flat();
}

std::string tag_body(std::uint32_t tag) {
  lab_reply body;
  body.put_u32(tag);
  return body.flat();
}

}  // namespace

std::string lab_sha1(std::string_view bytes) {
  unsigned char digest[EVP_MAX_MD_SIZE];
  unsigned size = 0;
  EVP_Digest(bytes.data(), bytes.size(), digest, &size, EVP_sha1(), nullptr);
  return {reinterpret_cast<const char *>(digest), size};
}

std::string lab_hex(std::string_view bytes) {
  static const char digits[] = "0123456789abcdef";
  std::string text;
  for (char c : bytes) {
    text += digits[static_cast<unsigned char>(c) >> 4];
    text += digits[c & 15];
  }
  return text;
}

lab_credentials::lab_credentials() {
  std::random_device device;
  for (std::uint8_t &byte : secret_) byte = static_cast<std::uint8_t>(device());
}

// What only this installation can make of a serial number and a user.
std::string lab_credentials::seal(std::string_view serial_and_user) const {
  std::string text(reinterpret_cast<const char *>(secret_.data()), secret_.size());
  return lab_sha1(text + std::string(serial_and_user));
}

std::string lab_credentials::issue(std::string_view host, std::string_view user,
                                   std::uint32_t application, std::string_view form) {
  std::string_view key = key_of(application);
  if (key.empty()) return {};
  lab_reply blob;
  blob.put_bytes("lab-opaque12");
  blob.put_u32(0);
  if (form != "unnamed") {
    blob.put_counted(host);
    lab_reply sealed;
    {
      std::lock_guard lock(mutex_);
      sealed.put_u64(++issued_);
    }
    sealed.put_bytes(user);
    // What lies behind a NUL is no part of the name.
    if (form == "long") sealed.put_bytes(std::string(LONG_FILLER, '\0'));
    blob.put_bytes(seal(sealed.flat()));
    blob.put_bytes(sealed.flat());
  }
  std::string bytes = blob.flat();
  std::uint32_t sum = posix_cksum(bytes);
  if (form == "badsum") sum ^= 0x00010000;
  put_checksum(bytes, form == "nosum" ? 0 : sum);
  hide(bytes, key);
  return bytes;
}

std::string lab_credentials::user_of(std::string_view given) const {
  std::string blob(given);
  if (blob.size() < NAME_AT) return {};
  if (!blob.starts_with("lab-opaque12")) hide(blob, REELSCAN_PROCESS_KEY);
  if (!blob.starts_with("lab-opaque12") || !checksum_holds(blob)) return {};
  if (blob.size() == NAME_AT) return "unnamed";
  xdr_memory_reader reader(std::string_view(blob).substr(NAME_AT));
  std::string host;
  if (!reader.get_counted(host, 255)) return {};
  std::string rest = blob.substr(blob.size() - static_cast<std::size_t>(reader.remaining()));
  if (rest.size() < SEAL_SIZE + SERIAL_SIZE) return {};
  std::string sealed = rest.substr(SEAL_SIZE);
  if (seal(sealed) != rest.substr(0, SEAL_SIZE)) return {};
  return sealed.substr(SERIAL_SIZE, sealed.find('\0', SERIAL_SIZE) - SERIAL_SIZE);
}

void lab_credentials::add_login(std::string user, std::string password) {
  logins_[std::move(user)] = std::move(password);
}

std::string lab_credentials::new_challenge() {
  std::lock_guard lock(mutex_);
  challenge_ = seal("challenge" + std::to_string(++issued_)).substr(0, 8);
  return challenge_;
}

bool lab_credentials::login_is_good(std::string_view user, std::string_view response) {
  auto login = logins_.find(std::string(user));
  std::lock_guard lock(mutex_);
  return login != logins_.end() && !challenge_.empty() &&
         response == lab_hex(lab_sha1(challenge_ + lab_sha1(login->second)));
}

std::uint32_t lab_credentials::new_short(const std::string &user) {
  std::lock_guard lock(mutex_);
  if (shorts_.size() >= SHORTS_MAX) shorts_.clear();
  shorts_[++last_short_] = user;
  return last_short_;
}

void lab_credentials::judge_kstr(const lab_auth &credential, const lab_fault &fault,
                                 lab_judgement &verdict) {
  xdr_memory_reader body(credential.body);
  std::uint32_t tag = 0, number = 0;
  verdict.deny = AUTH_BADCRED;
  if (!body.get_u32(tag)) return;
  std::string text, response, further;
  switch (tag) {
    case TAG_FULL:
      verdict.kind = "AUTH_KSTR full";
      verdict.full = true;
      if (!body.get_counted(text, OPAQUE_AUTH_MAX)) return;
      verdict.user = user_of(text);
      verdict.deny = verdict.user.empty() ? AUTH_REJECTEDCRED : AUTH_OK;
      if (verdict.deny == AUTH_OK && fault.verifier.empty())
        verdict.verifier = {AUTH_KSTR, word_body(TAG_SHORT, new_short(verdict.user))};
      break;
    case TAG_SHORT:
    case TAG_SHORT_NO_EXPIRY: {
      verdict.kind = "AUTH_KSTR short";
      if (!body.get_u32(number)) return;
      std::lock_guard lock(mutex_);
      auto known = shorts_.find(number);
      verdict.deny = known == shorts_.end() ? AUTH_REJECTEDCRED : AUTH_OK;
      if (known != shorts_.end()) verdict.user = known->second;
      break;
    }
    case TAG_LOGIN:
      verdict.kind = "AUTH_KSTR login";
      if (!body.get_counted(text, 64) || !body.get_counted(response, 64) ||
          !body.get_counted(further, 64))
        return;
      verdict.user = text;
      verdict.deny = login_is_good(text, response) ? AUTH_OK : AUTH_REJECTEDCRED;
      break;
    case TAG_CHALLENGE:
      verdict.kind = "AUTH_KSTR challenge";
      verdict.challenge = true;
      verdict.deny = AUTH_OK;
      break;
    default:
      break;
  }
}

namespace {

std::string unix_user(const lab_auth &credential) {
  xdr_memory_reader body(credential.body);
  std::uint32_t stamp = 0, uid = 0;
  std::string machine;
  if (!body.get_u32(stamp) || !body.get_counted(machine, 255) || !body.get_u32(uid)) return {};
  return "uid " + std::to_string(uid);
}

struct verifier_row_t {
  std::string_view form;
  std::uint32_t flavour;
  std::uint32_t tag;
  bool word;
};

constexpr verifier_row_t VERIFIERS[] = {
    {"none", AUTH_NONE, 0, false},
    {"same", AUTH_KSTR, TAG_FULL, false},
    {"short", AUTH_KSTR, TAG_SHORT, true},
    {"lost", AUTH_KSTR, TAG_LOST, true},
    {"login", AUTH_KSTR, TAG_LOGIN, false},
    {"noexpiry", AUTH_KSTR, TAG_SHORT_NO_EXPIRY, true},
    {"challenge", AUTH_KSTR, TAG_CHALLENGE, false},
    {"unix", AUTH_SHORT, 0, true},
};

}  // namespace

lab_judgement lab_credentials::judge(const lab_auth &credential, const lab_fault &fault) {
  lab_judgement verdict;
  switch (credential.flavour) {
    case AUTH_NONE:
      verdict.kind = "AUTH_NONE";
      break;
    case AUTH_UNIX:
      verdict.kind = "AUTH_UNIX";
      verdict.user = unix_user(credential);
      if (verdict.user.empty()) verdict.deny = AUTH_BADCRED;
      break;
    case AUTH_SHORT:
      verdict.kind = "AUTH_SHORT";
      break;
    case AUTH_KSTR:
      verdict.kind = "AUTH_KSTR";
      judge_kstr(credential, fault, verdict);
      break;
    default:
      verdict.kind = "flavour " + std::to_string(credential.flavour);
      verdict.deny = AUTH_REJECTEDCRED;
  }
  for (const verifier_row_t &row : VERIFIERS) {
    if (row.form != fault.verifier || verdict.deny != AUTH_OK) continue;
    bool is_short = row.tag == TAG_SHORT || row.tag == TAG_SHORT_NO_EXPIRY;
    std::uint32_t number = row.word && is_short ? new_short(verdict.user) : 0;
    verdict.verifier.flavour = row.flavour;
    if (row.flavour == AUTH_NONE)
      verdict.verifier.body.clear();
    else
      verdict.verifier.body = row.word ? word_body(row.tag, number) : tag_body(row.tag);
    if (row.form == "same") verdict.verifier.body = word_body(row.tag, 0);
    if (row.form == "login") verdict.verifier.body += std::string(12, '\0');
  }
  return verdict;
}

}  // namespace qvr
