// Passwords, tokens, blobs and keys do not outlive their use.
#pragma once

#include <cstring>
#include <string>
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

}  // namespace qvr
