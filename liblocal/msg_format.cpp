#include "msg_format.h"

#include <array>
#include <charconv>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <forward_list>
#include <memory>

#include "catalogue.h"
#include "debug_words.h"
#include "format.h"
#include "msg.h"
#include "msg_rings.h"

namespace qvr {

namespace {

// One value, from either kind of pair.
struct value_t {
  int type = MSG_ARG_TEXT;
  std::string_view text = "null";
  const errobj_t *err = nullptr;
};

value_t value_at(const msg_values_t &values, std::size_t index) {
  value_t value;
  if (index < values.pairs.size()) {
    const msg_pair_t &pair = values.pairs[index];
    if (pair.err == nullptr && pair.value.data() == nullptr) return value;
    value = {pair.type, pair.value, pair.err};
  } else if (index - values.pairs.size() < values.args.size()) {
    const msg_arg_t &arg = values.args[index - values.pairs.size()];
    value = {arg.type, arg.text, nullptr};
  }
  return value;
}

// The cursor over the pairs of a call and over those of a stored text.
struct values_cursor_t : fmt_cursor_t {
  explicit values_cursor_t(const msg_values_t &values_, int depth_)
      : values(values_), depth(depth_) {}

  value_t next() { return value_at(values, index++); }

  const msg_values_t &values;
  std::size_t index = 0;
  int depth;
  // Nested messages, for as long as the engine runs; a list without any takes no memory.
  std::forward_list<std::string> rendered;
};

values_cursor_t &of(fmt_cursor_t &cursor) {
  return static_cast<values_cursor_t &>(cursor);
}

// The start of a value as a terminated text for the number readers of the platform.
class number_text {
 public:
  explicit number_text(std::string_view text) {
    text_[text.copy(text_.data(), text_.size() - 1)] = '\0';
  }
  const char *c_str() const { return text_.data(); }

 private:
  std::array<char, 128> text_;
};

void fetch_int(fmt_slot_t &slot, fmt_cursor_t &cursor, const char *) {
  value_t value = of(cursor).next();
  if (value.type == MSG_ARG_CHAR) {
    slot.i = value.text.empty() ? 0 : static_cast<unsigned char>(value.text.front());
  } else {
    slot.i = static_cast<int>(std::strtol(number_text(value.text).c_str(), nullptr, 10));
  }
}

void fetch_unknown(fmt_slot_t &slot, fmt_cursor_t &cursor, const char *locale) {
  if (of(cursor).values.args.empty()) {
    KS_DEBUG(2, "Failed to identify message argument format");
  } else {
    KS_DEBUG(2, "Failed to identify strtxt argument format");
  }
  fetch_int(slot, cursor, locale);
}

void fetch_uint(fmt_slot_t &slot, fmt_cursor_t &cursor, const char *) {
  slot.u =
      static_cast<unsigned>(std::strtoul(number_text(of(cursor).next().text).c_str(), nullptr, 0));
}

void fetch_long(fmt_slot_t &slot, fmt_cursor_t &cursor, const char *) {
  slot.l = std::strtol(number_text(of(cursor).next().text).c_str(), nullptr, 10);
}

void fetch_llong(fmt_slot_t &slot, fmt_cursor_t &cursor, const char *) {
  slot.ll = std::strtol(number_text(of(cursor).next().text).c_str(), nullptr, 10);
}

void fetch_double(fmt_slot_t &slot, fmt_cursor_t &cursor, const char *) {
  slot.d = std::strtod(number_text(of(cursor).next().text).c_str(), nullptr);
}

void fetch_ldouble(fmt_slot_t &slot, fmt_cursor_t &cursor, const char *) {
  slot.ld = std::strtod(number_text(of(cursor).next().text).c_str(), nullptr);
}

void fetch_ulong(fmt_slot_t &slot, fmt_cursor_t &cursor, const char *) {
  slot.ul = std::strtoul(number_text(of(cursor).next().text).c_str(), nullptr, 0);
}

void fetch_pointer(fmt_slot_t &slot, fmt_cursor_t &cursor, const char *) {
  value_t value = of(cursor).next();
  number_text text(value.text);
  void *pointer = nullptr;
  if (std::sscanf(text.c_str(), "%p", &pointer) != 1) {
    pointer = nullptr;
    KS_DEBUG(2, "Unable to parse the voidptr parameter in '%s': '%s'.\n", "%p", text.c_str());
  }
  slot.p = pointer;
}

void fetch_text(fmt_slot_t &slot, fmt_cursor_t &cursor, const char *locale) {
  values_cursor_t &mine = of(cursor);
  value_t value = mine.next();
  std::string_view text = value.text;
  if (value.err != nullptr) {
    text =
        mine.rendered.emplace_front(msg_render_nested(locale, value.err->message, mine.depth + 1));
  } else if (value.type == MSG_ARG_ENCODED) {
    text = mine.rendered.emplace_front(msg_render_encoded(locale, text, mine.depth + 1));
  } else if (value.type == MSG_ARG_ATTR) {
    text = msg_attr_text(locale, text);
  }
  slot.s = {text.data(), text.size()};
}

const fmt_source_t values_source = {
    fetch_unknown, fetch_int,     fetch_uint, fetch_long,    fetch_llong,
    fetch_double,  fetch_ldouble, fetch_text, fetch_pointer, fetch_ulong,
};

// Bytes that the result takes at most, as long as no position is named twice and no width is given.
std::size_t room_for(std::string_view format, const msg_values_t &values) {
  std::size_t room = format.size() + FMT_ASSUMED_ROOM;
  for (std::size_t i = 0; i < values.count(); i++) {
    value_t value = value_at(values, i);
    bool nested = value.err != nullptr || value.type == MSG_ARG_ENCODED;
    room += FMT_ASSUMED_ROOM + (nested ? MSG_LARGE_BYTES : value.text.size());
  }
  return room;
}

// Bytes of a text that fit into `room`, not ending inside a character.
std::size_t cut_of(std::string_view text, std::size_t room) {
  if (text.size() <= room) return text.size();
  while (room > 0 && (static_cast<unsigned char>(text[room]) & 0xc0) == 0x80) room--;
  return room;
}

}  // namespace

std::size_t msg_copy_cut(char *buffer, std::size_t capacity, std::string_view text) {
  std::size_t size = cut_of(text, capacity - 1);
  std::memcpy(buffer, text.data(), size);
  buffer[size] = '\0';
  return size;
}

std::size_t msg_conversions(std::string_view format) {
  return i18n_arg_count(format);
}

std::string_view msg_attr_text(const char *locale, std::string_view value) {
  const char *end_of_value = value.data() + value.size();
  std::int32_t id = 0;
  auto [end, error] = std::from_chars(value.data(), end_of_value, id);
  if (error != std::errc() || end == end_of_value || *end != ':') return value;
  const char *found = catalogue_find(id, locale, nullptr);
  return found != nullptr ? std::string_view(found)
                          : value.substr(static_cast<std::size_t>(end + 1 - value.data()));
}

std::size_t msg_format(char *buffer, std::size_t capacity, const char *locale, const char *format,
                       const msg_values_t &values, int depth) {
  values_cursor_t cursor(values, depth);
  std::size_t room = room_for(format, values);
  if (room < capacity / 4) {
    return i18n_vsnprintf(buffer, capacity, nullptr, values_source, locale, format, cursor);
  }
  // A bounded print leaves a value out that does not fit; here its start is wanted. Formats come
  // off the wire, so that the room is not left to their widths.
  constexpr std::size_t most = 1 << 22;
  room = std::min(room + capacity, most);
  auto whole = std::make_unique_for_overwrite<char[]>(room);
  std::size_t size =
      i18n_vsnprintf(whole.get(), room, nullptr, values_source, locale, format, cursor);
  return msg_copy_cut(buffer, capacity, {whole.get(), size});
}

}  // namespace qvr
