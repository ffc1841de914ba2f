// The encoded form of structured texts, for the wire and the logs.
#include <algorithm>
#include <charconv>
#include <cstdio>

#include "format.h"
#include "msg.h"
#include "msg_format.h"
#include "msg_rings.h"
#include "strtxt_parts.h"

namespace qvr {

namespace {

constexpr std::size_t ENCODE_CUT = 2047;
constexpr std::size_t DECODE_MAX = 24576;

std::string encode_with_limit(const strtxt_t &message, std::size_t longest) {
  std::string out = std::to_string(message.id);
  out += ' ';
  out += std::to_string(message.format.size());
  out += ' ';
  out += message.format;
  if (message.args.empty()) return out;
  out += ' ';
  out += std::to_string(message.args.size());
  for (const msg_arg_t &arg : message.args) {
    std::string_view value = std::string_view(arg.text).substr(0, longest);
    out += ' ';
    out += std::to_string(arg.type);
    out += ' ';
    out += std::to_string(value.size());
    out += ' ';
    out += value;
  }
  return out;
}

std::string encode_plain(std::int32_t id, std::string_view text) {
  std::string out = std::to_string(id);
  out += ' ';
  out += std::to_string(text.size());
  out += ' ';
  out += text;
  return out;
}

// Each take_ operation consumes what it reads from the front of `text`, or gives false.
template <class Number>
bool take_number(std::string_view &text, Number &number) {
  auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (error != std::errc() || end == text.data()) return false;
  text.remove_prefix(static_cast<std::size_t>(end - text.data()));
  return true;
}

bool take_blank(std::string_view &text) {
  if (text.empty() || text.front() != ' ') return false;
  text.remove_prefix(1);
  return true;
}

bool take_bytes(std::string_view &text, std::size_t size, std::string &out) {
  if (size > text.size()) return false;
  out.assign(text.substr(0, size));
  text.remove_prefix(size);
  return true;
}

bool take_counted(std::string_view &text, std::size_t shortest, std::string &out) {
  std::size_t size = 0;
  return take_number(text, size) && size >= shortest && size <= DECODE_MAX && take_blank(text) &&
         take_bytes(text, size, out);
}

}  // namespace

msg_arg_t strtxt_copy_arg(const msg_pair_t &pair, std::int32_t id) {
  if (pair.err != nullptr) {
    return {MSG_ARG_ENCODED, strtxt_encode(pair.err->message)};
  }
  if (pair.value.data() == nullptr) {
    std::fflush(stdout);
    fmt_to_file(stderr, "passing null into one of the msg creation calls with msg id %d\n", id);
    return {MSG_ARG_TEXT, "null"};
  }
  return {pair.type, std::string(pair.value)};
}

void strtxt_fill(strtxt_t &message, std::int32_t id, const char *format, msg_pairs args) {
  message.id = id;
  message.format = format;
  message.args.clear();
  // The number of conversions rules: pairs beyond them are left out, missing ones are null.
  std::size_t count = std::min(msg_conversions(format), FMT_POSITIONS - 1);
  message.args.reserve(count);
  for (const msg_pair_t &pair : args) {
    if (message.args.size() == count) break;
    message.args.push_back(strtxt_copy_arg(pair, id));
  }
  while (message.args.size() < count) message.args.push_back({MSG_ARG_TEXT, "null"});
}

strtxt_t *strtxt_create(std::int32_t id, const char *format, msg_pairs args) {
  if (format == nullptr) return nullptr;
  strtxt_t *message = msg_next_strtxt();
  strtxt_fill(*message, id, format, args);
  return message;
}

std::string strtxt_encode(const strtxt_t &message) {
  return encode_with_limit(message, std::string::npos);
}

std::string strtxt_encode_cut(const strtxt_t &message) {
  return encode_with_limit(message, ENCODE_CUT);
}

std::size_t strtxt_encode_to(const strtxt_t &message, char *buffer, std::size_t size) {
  if (size == 0) return 0;
  std::string text = strtxt_encode(message);
  if (text.size() >= size) {
    text = encode_plain(0, "stbuf overflow, msgID:" + std::to_string(message.id));
  }
  std::size_t length = text.copy(buffer, size - 1);
  buffer[length] = '\0';
  return length;
}

std::string strtxt_encode_text(std::string_view text) {
  return encode_plain(0, text.substr(0, ENCODE_CUT));
}

std::string strtxt_encode_entry(std::string_view entry) {
  std::string_view rest = entry;
  std::int32_t id = 0;
  if (!take_number(rest, id) || rest.empty() || rest.front() != ':') {
    return strtxt_encode_text(entry);
  }
  return encode_plain(id, rest.substr(1));
}

bool strtxt_decode(std::string_view text, strtxt_t &out) {
  strtxt_t message;
  if (!take_number(text, message.id) || !take_blank(text)) return false;
  if (!take_counted(text, 1, message.format)) return false;
  std::size_t count = 0;
  if (!text.empty()) {
    if (!take_blank(text) || !take_number(text, count)) return false;
    if (count != msg_conversions(message.format)) return false;
  }
  for (std::size_t i = 0; i < count; i++) {
    msg_arg_t arg;
    if (!take_blank(text) || !take_number(text, arg.type) || !take_blank(text)) return false;
    if (!take_counted(text, 0, arg.text)) return false;
    message.args.push_back(std::move(arg));
  }
  if (!text.empty()) return false;
  out = std::move(message);
  return true;
}

}  // namespace qvr
