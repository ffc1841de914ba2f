#include "ksui.h"

#include <algorithm>
#include <charconv>

#include "debug_words.h"
#include "posix_cksum.h"

namespace qvr {

namespace {

std::string_view raw(const ksui &id) {
  return {reinterpret_cast<const char *>(id.bytes.data()), id.bytes.size()};
}

// How the text of a kind is made.
enum class kind_text { number, number_or_long, wide_or_long, long_only };

kind_text text_of_kind(std::int32_t kind) {
  switch (kind) {
    case KSUI_INVALID:
    case KSUI_NULL:
    case KSUI_NUMBER:
      return kind_text::number;
    case KSUI_VOLUME_OLD:
    case KSUI_SAVESET_OLD:
    case KSUI_VOLUME:
    case KSUI_SAVESET:
    case KSUI_BARE:
      return kind_text::number_or_long;
    case KSUI_STORAGE:
      return kind_text::wide_or_long;
    default:
      return kind_text::long_only;
  }
}

char *put_hex(char *at, std::uint32_t word) {
  static constexpr char digits[] = "0123456789abcdef";
  for (int shift = 28; shift >= 0; shift -= 4) *at++ = digits[word >> shift & 15];
  return at;
}

using text_room = std::array<char, 65>;

std::size_t render(const ksui &id, ksui_form form, text_room &out) {
  kind_text how = text_of_kind(id.kind());
  bool as_long =
      how == kind_text::long_only || (how != kind_text::number && form == ksui_form::long_form);
  char *at = out.data();
  if (as_long) {
    at = put_hex(at, posix_cksum(raw(id)));
    for (int i = 0; i < 5; i++) {
      *at++ = '-';
      at = put_hex(at, id.word(i));
    }
  } else {
    std::uint64_t number = id.word(1);
    if (how == kind_text::wide_or_long) number = number << 32 | id.word(3);
    at = std::to_chars(at, out.data() + out.size(), number).ptr;
  }
  *at = '\0';
  return static_cast<std::size_t>(at - out.data());
}

}  // namespace

int ksui_cmp(const ksui &a, const ksui &b) {
  std::int32_t ka = a.kind(), kb = b.kind();
  if (ka == KSUI_NUMBER || kb == KSUI_NUMBER) {
    std::uint32_t wa = a.word(1), wb = b.word(1);
    return wa < wb ? -1 : wa > wb ? 1 : 0;
  }
  auto old = [](std::int32_t kind) { return kind == KSUI_VOLUME_OLD || kind == KSUI_SAVESET_OLD; };
  std::size_t size = old(ka) || old(kb) ? 16 : 20;
  return std::memcmp(a.bytes.data(), b.bytes.data(), size);
}

std::string ksui_text(const ksui &id, ksui_form form) {
  text_room text;
  return std::string(text.data(), render(id, form, text));
}

const char *ksui_ring_text(const ksui &id, ksui_form form) {
  thread_local std::array<text_room, 20> ring;
  thread_local unsigned next = 0;
  text_room &text = ring[next++ % ring.size()];
  render(id, form, text);
  return text.data();
}

std::size_t ksui_to_text(const ksui &id, ksui_form form, std::span<char> out) {
  if (out.empty()) {
    KS_DEBUG(1, "ksui_to_long_string: failed to convert ksui to string.\n");
    return 0;
  }
  text_room text;
  std::size_t size = render(id, form, text);
  if (size >= out.size()) {
    KS_DEBUG(1,
             "ksui_to_long_string: conversion of ksui to string is truncated, len = '%d', "
             "outbuf_size = '%s'.\n",
             static_cast<int>(size), std::to_string(out.size()).c_str());
    size = out.size() - 1;
  }
  std::memcpy(out.data(), text.data(), size);
  out[size] = '\0';
  return size;
}

}  // namespace qvr
