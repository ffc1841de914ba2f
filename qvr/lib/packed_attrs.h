// The attributes of a record as they came off the wire: read in place, never copied to a list.
#pragma once

#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>

#include "attrlist.h"

namespace qvr {

// A view of a series of attributes in its wire form (name, has-values, values, another-follows),
// which the decoder has checked from end to end. It borrows: the bytes live as long as the record.
// The series may be unsorted.
class packed_attrs {
 public:
  packed_attrs() = default;
  // `series` must have been checked, or be what pack() made.
  explicit packed_attrs(std::string_view series) : series_(series) {}

  class values_t {
   public:
    values_t(const char *at, bool any) : at_(at), any_(any) {}
    // Gives the next value; false at the end.
    bool next(std::string_view &value) {
      if (!any_) return false;
      value = counted(at_);
      any_ = word(at_) != 0;
      return true;
    }

   private:
    friend class packed_attrs;
    const char *at_;
    bool any_;
  };

  class cursor_t {
   public:
    explicit cursor_t(std::string_view series) : at_(series.data()), any_(!series.empty()) {}
    // Gives the next attribute and a cursor over its values; false at the end.
    bool next(std::string_view &name, values_t &values) {
      if (!any_) return false;
      name = counted(at_);
      bool has = word(at_) != 0;
      values = values_t(at_, has);
      while (has) {
        counted(at_);
        has = word(at_) != 0;
      }
      any_ = word(at_) != 0;
      return true;
    }

   private:
    const char *at_;
    bool any_;
  };

  cursor_t cursor() const { return cursor_t(series_); }
  static values_t no_values() { return {nullptr, false}; }
  // True when there is no attribute, or only the nameless one that stands for none.
  bool empty() const;

  // The values of the first attribute of that name (folded as in attr_name_cmp); false when
  // missing.
  bool find(std::string_view name, values_t &values) const;
  // The first value; a null view when the attribute is missing or has none.
  std::string_view first(std::string_view name) const;
  bool has(std::string_view name) const;

  attrlist unpack() const;
  static std::string pack(const attrlist &list);
  std::string_view series() const { return series_; }

 private:
  static std::uint32_t word(const char *&at) {
    std::uint32_t value;
    std::memcpy(&value, at, 4);
    at += 4;
    return __builtin_bswap32(value);
  }
  // Ends at the first NUL, as every text off the wire.
  static std::string_view counted(const char *&at) {
    std::uint32_t size = word(at);
    std::string_view text(at, size);
    at += (size + 3) & ~std::uint32_t{3};
    return text.substr(0, text.find('\0'));
  }

  std::string_view series_;
};

}  // namespace qvr
