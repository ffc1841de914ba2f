#include "msg_translation.h"

#include <array>

#include "catalogue.h"
#include "format_spec.h"

namespace qvr {

namespace {

// The classes that a format asks for, by position; FMT_CLASSES where it asks for nothing.
struct asked_classes_t {
  std::array<std::uint8_t, FMT_POSITIONS> of;
  std::size_t highest = 0;
  bool clean = true;  // the platform's print takes each conversion

  asked_classes_t() { of.fill(FMT_CLASSES); }

  void note(int position, fmt_class cls) {
    if (position <= 0) return;
    auto at = static_cast<std::size_t>(position);
    highest = std::max(highest, at);
    if (at < of.size()) of[at] = cls;
  }
};

asked_classes_t asked_classes(std::string_view format) {
  asked_classes_t asked;
  int position = 1;
  std::size_t at = 0;
  while ((at = format.find('%', at)) != std::string_view::npos) {
    if (at + 1 < format.size() && format[at + 1] == '%') {
      at += 2;
      continue;
    }
    fmt_conv_t conv;
    at = fmt_read_conv(format, at, position, conv);
    asked.note(conv.width_pos, FMT_INT);
    asked.note(conv.precision_pos, FMT_INT);
    asked.note(conv.value_pos, conv.cls);
    asked.clean = asked.clean && conv.letter != 0 && fmt_conv_is_safe(conv);
  }
  return asked;
}

}  // namespace

bool msg_translation_fits(std::string_view translated, std::string_view english,
                          std::size_t values) {
  if (translated.find('%') == std::string_view::npos) return true;
  asked_classes_t asked = asked_classes(translated);
  if (!asked.clean || asked.highest > values || asked.highest >= FMT_POSITIONS) return false;
  // A text can show any value; a number can be made only of what the English shows as one.
  asked_classes_t known = asked_classes(english);
  for (std::size_t at = 1; at <= asked.highest; at++) {
    bool text_known = known.of[at] == FMT_TEXT;
    if (text_known && asked.of[at] != FMT_TEXT && asked.of[at] != FMT_CLASSES) return false;
  }
  return true;
}

const char *msg_translated_format(std::int32_t id, const char *locale, const char *english,
                                  std::size_t values) {
  const char *found = catalogue_find(id, locale, english);
  return found == english || msg_translation_fits(found, english, values) ? found : english;
}

}  // namespace qvr
