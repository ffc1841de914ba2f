// A record stream over memory: what it reads comes in pieces of told sizes, what it writes is kept
// call by call.
#pragma once

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "record_stream.h"

namespace qvr {

struct memory_transport {
  std::string incoming;
  std::size_t at = 0;
  std::vector<std::size_t> pieces = {SIZE_MAX};  // sizes of reads, again from the first at the end
  std::size_t next_piece = 0;
  std::vector<std::string> writes;
  std::vector<std::size_t> reads;  // sizes that were asked for

  std::int64_t take(std::uint8_t *b1, std::size_t s1, std::uint8_t *b2, std::size_t s2) {
    reads.push_back(s1 + s2);
    std::size_t piece = pieces[next_piece++ % pieces.size()];
    std::size_t size = std::min({piece, incoming.size() - at, s1 + s2});
    if (size == 0) return -1;
    std::size_t first = std::min(size, s1);
    std::memcpy(b1, incoming.data() + at, first);
    if (size > first) std::memcpy(b2, incoming.data() + at + first, size - first);
    at += size;
    return static_cast<std::int64_t>(size);
  }
  std::int64_t keep(const std::uint8_t *b1, std::size_t s1, const std::uint8_t *b2,
                    std::size_t s2) {
    std::string all(reinterpret_cast<const char *>(b1), s1);
    if (s2 != 0) all.append(reinterpret_cast<const char *>(b2), s2);
    writes.push_back(std::move(all));
    return static_cast<std::int64_t>(s1 + s2);
  }
  std::string written() const {
    std::string all;
    for (const std::string &part : writes) all += part;
    return all;
  }
};

inline std::unique_ptr<xdr_record_stream> make_stream(memory_transport &transport,
                                                      std::uint32_t type = XDRREC_VECTORED,
                                                      std::uint32_t send_size = 0,
                                                      std::uint32_t receive_size = 0) {
  static const auto transport_of = [](void *handle) -> memory_transport & {
    return *static_cast<memory_transport *>(handle);
  };
  if (type == XDRREC_SIMPLE) {
    return xdrrec2_create_simple(
        &transport, send_size, receive_size,
        [](void *h, std::uint8_t *b, std::size_t s) {
          return transport_of(h).take(b, s, nullptr, 0);
        },
        [](void *h, const std::uint8_t *b, std::size_t s) {
          return transport_of(h).keep(b, s, nullptr, 0);
        });
  }
  return xdrrec2_create_vectored(
      &transport, send_size, receive_size,
      [](void *h, std::uint8_t *b1, std::size_t s1, std::uint8_t *b2, std::size_t s2) {
        return transport_of(h).take(b1, s1, b2, s2);
      },
      [](void *h, const std::uint8_t *b1, std::size_t s1, const std::uint8_t *b2, std::size_t s2) {
        return transport_of(h).keep(b1, s1, b2, s2);
      });
}

inline std::string word(std::uint32_t value) {
  std::uint8_t bytes[4];
  XDR::store32(bytes, value);
  return {reinterpret_cast<const char *>(bytes), 4};
}

// A record of `payload` in fragments of `size` bytes; the last one carries the mark.
inline std::string record(std::string_view payload, std::size_t size = SIZE_MAX) {
  std::string out;
  do {
    std::size_t part = std::min(size, payload.size());
    bool last = part == payload.size();
    out += word(static_cast<std::uint32_t>(part) | (last ? 0x80000000u : 0));
    out += payload.substr(0, part);
    payload.remove_prefix(part);
  } while (!payload.empty());
  return out;
}

inline std::string payload_of(std::size_t size, unsigned seed = 1) {
  std::string bytes(size, '\0');
  for (char &byte : bytes) byte = static_cast<char>((seed = seed * 1103515245 + 12345) >> 16);
  return bytes;
}

// A cipher that anybody can check by eye: bytes XORed with 0x5a behind a word with their length.
struct test_cipher {
  int encrypted = 0, decrypted = 0, released = 0, refreshed = 0, reauths = 0;
  bool wants_refresh = false;
  int failing_encrypts = 0;
  bool refresh_fails = false;
  bool reauth_fails = false;
  bool reauth_turns_off = false;
  XDR *stream = nullptr;

  xdrrec_crypt_ops ops() {
    xdrrec_crypt_ops table;
    table.context = this;
    table.encrypt = [](void *c, const xdrrec_buf_t &in, xdrrec_buf_t &out) {
      return of(c).run_encrypt(in, out);
    };
    table.decrypt = [](void *c, const xdrrec_buf_t &in, xdrrec_buf_t &out) {
      return of(c).run_decrypt(in, out);
    };
    table.release = [](void *c, xdrrec_buf_t &buffer) {
      delete[] buffer.data;
      buffer = {};
      of(c).released++;
    };
    table.needs_refresh = [](void *c) { return of(c).wants_refresh; };
    table.refresh = [](void *c) -> errobj_t * {
      of(c).refreshed++;
      return of(c).refresh_fails ? failure() : nullptr;
    };
    table.reauth = [](void *c) { return of(c).run_reauth(); };
    return table;
  }

  static std::string sealed(std::string_view plain) {
    std::string out = word(static_cast<std::uint32_t>(plain.size()));
    for (char byte : plain) out += static_cast<char>(byte ^ 0x5a);
    return out;
  }
  // A fragment as it crosses the wire.
  static std::string fragment(std::string_view plain, bool last) {
    std::string cipher = sealed(plain);
    return word(static_cast<std::uint32_t>(cipher.size()) | (last ? 0x80000000u : 0)) + cipher;
  }
  static errobj_t *failure() {
    static thread_local errobj_t error;
    error.code = 23007;
    error.text = "the test cipher was told to fail";
    return &error;
  }

 private:
  static test_cipher &of(void *context) { return *static_cast<test_cipher *>(context); }
  errobj_t *run_encrypt(const xdrrec_buf_t &in, xdrrec_buf_t &out) {
    if (failing_encrypts > 0) {
      failing_encrypts--;
      return failure();
    }
    std::string cipher = sealed({reinterpret_cast<const char *>(in.data), in.size});
    give(cipher, out);
    encrypted++;
    return nullptr;
  }
  errobj_t *run_decrypt(const xdrrec_buf_t &in, xdrrec_buf_t &out) {
    if (in.size < 4 || XDR::load32(in.data) != in.size - 4) return failure();
    std::string plain(reinterpret_cast<const char *>(in.data) + 4, in.size - 4);
    for (char &byte : plain) byte = static_cast<char>(byte ^ 0x5a);
    give(plain, out);
    decrypted++;
    return nullptr;
  }
  errobj_t *run_reauth() {
    reauths++;
    if (reauth_fails) return failure();
    xdrrec_raw_t none;
    if (!xdrrec_control(*stream, XDRREC_RECV_RAW, &none)) return failure();
    if (reauth_turns_off && !xdrrec_control(*stream, XDRREC_CRYPT_OFF, nullptr)) return failure();
    return nullptr;
  }
  static void give(const std::string &bytes, xdrrec_buf_t &out) {
    out.data = new std::uint8_t[bytes.size() + 1];
    std::memcpy(out.data, bytes.data(), bytes.size());
    out.size = static_cast<std::uint32_t>(bytes.size());
  }
};

}  // namespace qvr
