// Passwords, tokens, blobs and keys do not outlive their use.
#pragma once

#include <cstring>
#include <string>
#include <string_view>
#include <utility>

namespace qvr {

// Overwrites the bytes, also where the compiler sees no reader of them.
inline void secret_wipe(void *bytes, std::size_t size) {
  if (size != 0) explicit_bzero(bytes, size);
}
inline void secret_wipe(std::string &text) {
  secret_wipe(text.data(), text.size());
  text.clear();
}

// A string that is wiped when it goes.
class secret_text {
 public:
  secret_text() = default;
  explicit secret_text(std::string &&text) : text_(std::move(text)) {}
  ~secret_text() { secret_wipe(text_); }
  secret_text(const secret_text &) = delete;
  secret_text &operator=(const secret_text &) = delete;
  std::string &get() { return text_; }
  const std::string &get() const { return text_; }

 private:
  std::string text_;
};

// Bytes of a key, a nonce or the like: every copy is wiped when it goes.
class secret_bytes {
 public:
  secret_bytes() = default;
  explicit secret_bytes(std::string_view bytes) : bytes_(bytes) {}
  secret_bytes(const secret_bytes &) = default;
  secret_bytes &operator=(const secret_bytes &other) {
    if (this != &other) assign(other.bytes_);
    return *this;
  }
  ~secret_bytes() { wipe(); }
  void assign(std::string_view bytes) {
    wipe();
    bytes_.assign(bytes);
  }
  void wipe() { secret_wipe(bytes_); }
  std::string_view view() const { return bytes_; }
  std::size_t size() const { return bytes_.size(); }
  // For a reader that fills it; whoever grows it later leaves copies behind.
  std::string &bytes() { return bytes_; }

 private:
  std::string bytes_;
};

}  // namespace qvr
