#include "clone_attrs.h"

#include <charconv>

namespace qvr {

namespace {

struct split_t {
  std::string_view text;
  std::string_view ids;
};

split_t split(std::string_view value) {
  std::size_t colon = value.find(':');
  if (colon == std::string_view::npos) return {value, {}};
  return {value.substr(0, colon), value.substr(colon + 1)};
}

// A clone id as the values spell it.
class id_text {
 public:
  explicit id_text(std::int64_t id)
      : size_(
            static_cast<std::size_t>(std::to_chars(text_, text_ + sizeof text_, id).ptr - text_)) {}

  // The text in front of the ":" counts as an id too.
  bool named_by(const split_t &value) const {
    std::string_view id(text_, size_), ids = value.ids;
    if (value.text == id) return true;
    while (!ids.empty()) {
      std::size_t blank = ids.find_first_of(" \t\n");
      if (ids.substr(0, blank) == id) return true;
      if (blank == std::string_view::npos) break;
      ids.remove_prefix(blank + 1);
    }
    return false;
  }

 private:
  char text_[24];
  std::size_t size_;
};

// Calls `take` with the text of each value that applies until it answers false.
template <class Take>
void each(const clone_t *clone, const ss_t &ss, std::string_view attribute, Take take) {
  packed_attrs::values_t values = packed_attrs::no_values();
  if (!ss.attrs.find(attribute, values)) return;
  id_text id(clone != nullptr ? clone->cloneid : 0);
  std::string_view value;
  while (values.next(value)) {
    split_t parts = split(value);
    if ((clone == nullptr || id.named_by(parts)) && !take(parts.text)) return;
  }
}

}  // namespace

std::string_view clone_attr(const clone_t *clone, const ss_t &ss, std::string_view attribute) {
  std::string_view found;
  each(clone, ss, attribute, [&](std::string_view text) {
    found = text;
    return false;
  });
  return found;
}

std::vector<std::string_view> clone_attr_all(const clone_t *clone, const ss_t &ss,
                                             std::string_view attribute) {
  std::vector<std::string_view> found;
  each(clone, ss, attribute, [&](std::string_view text) {
    found.push_back(text);
    return true;
  });
  return found;
}

}  // namespace qvr
