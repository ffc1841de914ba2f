// Texts, attributes and plain arrays of records.
#include "attrlist.h"
#include "wire_words.h"
#include "xdr_arrays.h"
#include "xdr_records.h"

namespace qvr {

namespace {

std::size_t padded(std::uint32_t size) {
  return (std::size_t{size} + 3) & ~std::size_t{3};
}

// A text ends at its first NUL, whatever its count says: no report has room for what hides behind.
std::string_view kept_text(arena &page, std::string_view bytes) {
  bytes = bytes.substr(0, bytes.find('\0'));
  return bytes.empty() ? std::string_view("", 0) : page.copy(bytes);
}

// Where a series of attributes ends that begins at `at`; null when it does not end before `end`.
// `good` turns false when a name is too long.
const std::uint8_t *scan_series(const std::uint8_t *at, const std::uint8_t *end, bool &good) {
  auto word = [&](std::uint32_t &value) {
    if (end - at < 4) return false;
    value = XDR::load32(at);
    at += 4;
    return true;
  };
  auto skip = [&](std::uint32_t size) {
    if (static_cast<std::size_t>(end - at) < padded(size)) return false;
    at += padded(size);
    return true;
  };
  std::uint32_t size, more;
  do {
    if (!word(size)) return nullptr;
    if (size > ATTR_NAME_MAX) {
      good = false;
      return nullptr;
    }
    if (!skip(size) || !word(more)) return nullptr;
    while (more != 0) {
      if (!word(size)) return nullptr;
      if (size > XDR_MAX) {
        good = false;
        return nullptr;
      }
      if (!skip(size) || !word(more)) return nullptr;
    }
    if (!word(more)) return nullptr;
  } while (more != 0);
  return at;
}

// Reads a series piece by piece from a stream that has it in no one piece.
class series_gatherer {
 public:
  explicit series_gatherer(XDR &xdr) : xdr_(xdr) {}

  bool gather() {
    std::uint32_t more;
    do {
      if (!counted(ATTR_NAME_MAX) || !word(more)) return false;
      while (more != 0) {
        if (!counted(XDR_MAX) || !word(more)) return false;
      }
      if (!word(more)) return false;
    } while (more != 0);
    return true;
  }
  const std::string &bytes() const { return bytes_; }

 private:
  bool word(std::uint32_t &value) {
    if (!xdr_.get_u32(value)) return false;
    std::uint8_t raw[4];
    XDR::store32(raw, value);
    bytes_.append(reinterpret_cast<const char *>(raw), 4);
    return true;
  }
  bool counted(std::uint32_t limit) {
    std::uint32_t size = 0;
    if (!word(size) || size > limit) return false;
    for (std::size_t left = padded(size); left != 0;) {
      std::size_t have = bytes_.size(), step = std::min(left, XDR_TRUSTED_BYTES);
      bytes_.resize(have + step);
      if (!xdr_.get_bytes(bytes_.data() + have, step)) return false;
      left -= step;
    }
    return true;
  }

  XDR &xdr_;
  std::string bytes_;
};

std::string_view keep(arena &page, const void *from, std::size_t size) {
  auto *to = static_cast<char *>(page.take(size, 1));
  std::memcpy(to, from, size);
  return {to, size};
}

}  // namespace

bool xdr_get_text(XDR &xdr, arena &page, std::string_view &text, std::uint32_t limit) {
  std::uint32_t size = 0;
  if (!xdr.get_u32(size) || size > limit) return false;
  if (size == 0) {
    text = std::string_view("", 0);
    return true;
  }
  if (const std::uint8_t *at = xdr.inline_get(padded(size))) {
    text = kept_text(page, {reinterpret_cast<const char *>(at), size});
    return true;
  }
  if (padded(size) > xdr.remaining()) return false;
  std::string gathered;
  for (std::size_t left = padded(size); left != 0;) {
    std::size_t have = gathered.size(), step = std::min(left, XDR_TRUSTED_BYTES);
    gathered.resize(have + step);
    if (!xdr.get_bytes(gathered.data() + have, step)) return false;
    left -= step;
  }
  text = kept_text(page, std::string_view(gathered).substr(0, size));
  return true;
}

bool xdr_put_packed(XDR &xdr, const packed_attrs &attrs) {
  std::string_view series = attrs.series();
  return xdr.put_bool(!series.empty()) && xdr.put_bytes(series.data(), series.size());
}

bool xdr_get_packed(XDR &xdr, arena &page, packed_attrs &attrs) {
  bool present;
  if (!xdr.get_bool(present)) return false;
  attrs = packed_attrs();
  if (!present) return true;
  std::span<const std::uint8_t> window = xdr.window();
  bool good = true;
  if (const std::uint8_t *end = scan_series(window.data(), window.data() + window.size(), good)) {
    auto size = static_cast<std::size_t>(end - window.data());
    auto *to = static_cast<char *>(page.take(size, 1));
    attrs = packed_attrs(std::string_view(to, size));
    return xdr.get_bytes(to, size);
  }
  if (!good) return false;
  series_gatherer series(xdr);
  if (!series.gather()) return false;
  attrs = packed_attrs(keep(page, series.bytes().data(), series.bytes().size()));
  return true;
}

bool xdr_put_ids(XDR &xdr, std::span<const ksui> ids) {
  return xdr.put_u32(static_cast<std::uint32_t>(ids.size())) &&
         xdr.put_bytes(ids.data(), ids.size_bytes());
}

bool xdr_get_ids(XDR &xdr, arena &page, std::span<ksui> &ids) {
  static_assert(sizeof(ksui) == 20 && alignof(ksui) == 1);
  std::uint32_t count = 0;
  if (!xdr.get_u32(count)) return false;
  std::size_t size = std::size_t{count} * sizeof(ksui);
  if (const std::uint8_t *at = size == 0 ? nullptr : xdr.inline_get(size)) {
    ids = page.make_array<ksui>(count);
    std::memcpy(ids.data(), at, size);
    return true;
  }
  return xdr_get_items(xdr, page, count, sizeof(ksui), ids,
                       [&](ksui &id) { return xdr_get_ksui(xdr, id); });
}

bool xdr_put_times(XDR &xdr, std::span<const std::int64_t> times) {
  if (!xdr.put_u32(static_cast<std::uint32_t>(times.size()))) return false;
  for (std::int64_t time : times) {
    if (!xdr.put_i64(time)) return false;
  }
  return true;
}

bool xdr_get_times(XDR &xdr, arena &page, std::span<std::int64_t> &times) {
  std::uint32_t count = 0;
  return xdr.get_u32(count) && xdr_get_items(xdr, page, count, 8, times,
                                             [&](std::int64_t &time) { return xdr.get_i64(time); });
}

}  // namespace qvr
