// What a request asks of a save set, readied once for a walk through many.
#pragma once

#include <regex.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "lab_catalogue.h"

namespace qvr {

class ss_selection {
 public:
  // `level` is the highest level wanted plus 1, 0 for any. `attrs`: each attribute must be there
  // with one of its values, in any case. `filter`: the same, except that an annotation is a
  // classic regular expression that must match somewhere, in any case. Empty texts ask nothing.
  ss_selection(const lab_catalogue &catalogue, const std::string &client, const std::string &name,
               std::int32_t level, const attrlist &attrs, const attrlist &filter);

  // Calls `each` with the save sets that fit and whose save time lies from `from` to `to`, in the
  // order of the catalogue, until it answers false.
  template <class Each>
  void walk(std::int64_t from, std::int64_t to, Each each) const {
    std::size_t at = first_from(from), end = count();
    for (; at < end; at++) {
      const ss_row &row = row_at(at);
      if (row.savetime > to) return;
      if (fits(row) && !each(row)) return;
    }
  }
  // The same from the newest before `before` on backwards.
  template <class Each>
  void walk_back(std::int64_t before, Each each) const {
    for (std::size_t at = first_from(before); at > 0; at--) {
      const ss_row &row = row_at(at - 1);
      if (fits(row) && !each(row)) return;
    }
  }
  bool fits(const ss_row &row) const;

 private:
  std::size_t count() const { return by_client_ ? rows_.size() : catalogue_.savesets().size(); }
  const ss_row &row_at(std::size_t at) const {
    return catalogue_.savesets()[by_client_ ? rows_[at] : at];
  }
  std::size_t first_from(std::int64_t time) const;

  struct regex_closer {
    void operator()(regex_t *regex) const {
      regfree(regex);
      delete regex;
    }
  };
  void add_attribute(const attr_t &attr, bool as_filter);

  const lab_catalogue &catalogue_;
  bool by_client_;
  std::span<const std::uint32_t> rows_;  // with by_client_
  bool nothing_ = false;                 // a text that no save set has
  std::optional<std::uint32_t> name_;
  std::int32_t level_;
  attrlist attrs_;
  std::vector<std::unique_ptr<regex_t, regex_closer>> annotations_;  // one of them must match
};

}  // namespace qvr
