#include <array>
#include <vector>

#include "msg.h"
#include "msg_format.h"
#include "msg_rings.h"
#include "msg_translation.h"

namespace qvr {

namespace {

std::size_t render_into(char *buffer, std::size_t capacity, const char *locale,
                        const strtxt_t &message, int depth) {
  const char *format =
      msg_translated_format(message.id, locale, message.format.c_str(), message.args.size());
  if (message.args.empty()) return msg_copy_cut(buffer, capacity, format);
  return msg_format(buffer, capacity, locale, format, {{}, message.args}, depth);
}

}  // namespace

std::string msg_render_nested(const char *locale, const strtxt_t &message, int depth) {
  if (depth > MSG_NEST_MAX) return {};
  std::array<char, MSG_LARGE_BYTES> text;
  return {text.data(), render_into(text.data(), text.size(), locale, message, depth)};
}

std::string msg_render_encoded(const char *locale, std::string_view encoded, int depth) {
  if (depth > MSG_NEST_MAX) return {};
  strtxt_t message;
  if (strtxt_decode(encoded, message)) return msg_render_nested(locale, message, depth);
  if (!strtxt_is_xml(encoded)) return {};
  // Few messages, each behind the later ones.
  std::vector<std::string> texts;
  while (encoded.find("<MSG ") != std::string_view::npos) {
    if (!strtxt_take_xml(encoded, message)) return {};
    texts.push_back(msg_render_nested(locale, message, depth));
  }
  std::string joined;
  for (auto text = texts.rbegin(); text != texts.rend(); ++text) {
    if (text != texts.rbegin()) joined += ", ";
    joined += *text;
    if (joined.size() >= MSG_LARGE_BYTES) break;
  }
  return joined;
}

const char *msg_text(std::int32_t id, const char *locale, const char *format, msg_pairs args) {
  if (format == nullptr) return nullptr;
  char *buffer = msg_large_buffer();
  const char *found = msg_translated_format(id, locale, format, args.size());
  msg_format(buffer, MSG_LARGE_BYTES, locale, found, {{args.begin(), args.size()}, {}}, 0);
  return buffer;
}

const char *msg_render(const char *locale, const strtxt_t &message) {
  char *buffer = msg_large_buffer();
  render_into(buffer, MSG_LARGE_BYTES, locale, message, 0);
  return buffer;
}

const char *msg_render_xml(const char *locale, std::string_view text) {
  char *buffer = msg_large_buffer();
  if (strtxt_is_xml(text))
    msg_copy_cut(buffer, MSG_LARGE_BYTES, msg_render_encoded(locale, text, 0));
  return buffer;
}

}  // namespace qvr
