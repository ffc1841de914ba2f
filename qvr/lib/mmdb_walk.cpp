// Reading a call's arguments by its row.
#include "arena.h"
#include "attrlist.h"
#include "mmdb_procs.h"
#include "records.h"
#include "xdr_lists.h"
#include "xdr_records.h"
#include "xdr_shared.h"

namespace qvr {

namespace {

constexpr std::size_t SHOWN_ITEMS = 16;
constexpr std::size_t RESID_BYTES = 32;

// Reads one item of a type and shows it. The arena of large records is dropped item by item.
class walker {
 public:
  walker(XDR &xdr, std::string *text) : xdr_(xdr), text_(text) {}

  bool arg(const mmdb_arg_t &arg) {
    if (text_ != nullptr) {
      if (!text_->empty()) *text_ += ' ';
      if (*arg.name != '\0') *text_ += std::string(arg.name) + '=';
    }
    bool there;
    switch (arg.form) {
      case mmdb_form::plain:
        return item(arg.type);
      case mmdb_form::optional:
        if (!xdr_.get_bool(there)) return false;
        if (!there) return show("none");
        return item(arg.type);
      case mmdb_form::array:
        return array(arg.type);
      case mmdb_form::optional_array:
        if (!xdr_.get_bool(there)) return false;
        return there ? array(arg.type) : show("none");
      case mmdb_form::optional_list:
        return bracketed(
            [&] { return xdr_get_optional_list(xdr_, [&] { return next(arg.type); }); });
      case mmdb_form::direct_list:
        return bracketed([&] { return xdr_get_direct_list(xdr_, [&] { return next(arg.type); }); });
    }
    return false;
  }

 private:
  bool show(std::string_view value) {
    if (text_ != nullptr && shown_ <= SHOWN_ITEMS) *text_ += value;
    return true;
  }
  template <class Number>
  bool number(Number value) {
    return show(std::to_string(value));
  }
  bool quoted(std::string_view value) { return show("\"") && show(value) && show("\""); }

  template <class Read>
  bool bracketed(Read read) {
    shown_ = 0;
    bool good = show("[") && read();
    if (shown_ > SHOWN_ITEMS) number_of_items();
    shown_ = 0;
    return good && show("]");
  }
  void number_of_items() {
    if (text_ != nullptr) *text_ += ",... " + std::to_string(shown_) + " in all";
  }
  bool next(mmdb_type type) {
    if (shown_ != 0) show(",");
    shown_++;
    return item(type);
  }
  bool array(mmdb_type type) {
    std::uint32_t count;
    if (!xdr_.get_u32(count)) return false;
    return bracketed([&] {
      for (std::uint32_t i = 0; i < count; i++) {
        if (!next(type)) return false;
      }
      return true;
    });
  }

  template <class Value, class Get, class Show>
  bool read(Get get, Show shown) {
    Value value{};
    return get(value) && shown(value);
  }

  bool text_item(std::uint32_t limit) {
    std::string value;
    return xdr_.get_counted(value, limit) && quoted(value);
  }
  bool id_item() {
    ksui value;
    return xdr_get_ksui(xdr_, value) && show(ksui_text(value, ksui_form::short_form));
  }
  bool attributes_item() {
    attrlist list;
    if (!xdr_get_attrlist(xdr_, list)) return false;
    show("{");
    for (const attr_t &attr : list) {
      show(attr.name);
      for (const std::string &value : attr.values) show(":") && quoted(value);
      show(";");
    }
    return show("}");
  }
  bool values_item() {
    return xdr_get_direct_list(xdr_, [&] { return text_item(XDR_MAX); });
  }
  bool range_item() {
    mr_range range;
    return xdr_get_mr(xdr_, range) && number(range.mr_start_time) && show("..") &&
           number(range.mr_end_time) && show("/") && number(range.mr_count);
  }
  bool clidmap_item() {
    clidmap entry;
    return xdr_get_clidmap(xdr_, entry) && show(ksui_text(entry.clientid, ksui_form::long_form)) &&
           show("/") && quoted(entry.clientname);
  }
  bool ss_item() {
    arena page;
    ss_t ss;
    return xdr_get_ss(xdr_, page, ss) && show(ksui_text(ss.ssid, ksui_form::short_form));
  }
  bool vol_item() {
    arena page;
    vol_t vol;
    return xdr_get_vol(xdr_, page, vol) && quoted(vol.volume);
  }
  bool frag_item() {
    frag_t frag;
    return xdr_get_frag(xdr_, frag) && show(ksui_text(frag.volid, ksui_form::short_form));
  }
  bool resource_item() {
    attrlist list;
    std::uint8_t id[RESID_BYTES];
    std::uint32_t sequence;
    return xdr_get_optional_attrlist(xdr_, list) && xdr_.get_bytes(id, sizeof id) &&
           xdr_.get_u32(sequence) && show("resource");
  }
  bool in_order(std::initializer_list<mmdb_arg_t> parts) {
    std::string *kept = std::exchange(text_, nullptr);
    bool good = true;
    for (const mmdb_arg_t &part : parts) good = good && arg(part);
    text_ = kept;
    return good && show("record");
  }

  bool item(mmdb_type type);

  XDR &xdr_;
  std::string *text_;
  std::size_t shown_ = 0;
};

bool walker::item(mmdb_type type) {
  using enum mmdb_type;
  switch (type) {
    case int32:
    case enumeration:
      return read<std::int32_t>([&](auto &v) { return xdr_.get_i32(v); },
                                [&](auto v) { return number(v); });
    case uint32:
    case char32:
      return read<std::uint32_t>([&](auto &v) { return xdr_.get_u32(v); },
                                 [&](auto v) { return number(v); });
    case boolean:
      return read<bool>([&](auto &v) { return xdr_.get_bool(v); },
                        [&](auto v) { return show(v ? "1" : "0"); });
    case int64:
      return read<std::int64_t>([&](auto &v) { return xdr_.get_i64(v); },
                                [&](auto v) { return number(v); });
    case uint64:
      return read<std::uint64_t>([&](auto &v) { return xdr_.get_u64(v); },
                                 [&](auto v) { return number(v); });
    case string:
      return text_item(XDR_MAX);
    case string128:
      return text_item(128);
    case id:
      return id_item();
    case attributes:
      return attributes_item();
    case values:
      return values_item();
    case range:
      return range_item();
    case frag:
      return frag_item();
    case mmdb_type::clidmap:
      return clidmap_item();
    case ss:
      return ss_item();
    case vol:
      return vol_item();
    case resource:
      return resource_item();
    case vol_filter:
      return in_order({{string},
                       {string},
                       {uint32},
                       {uint32},
                       {string},
                       {uint32},
                       {range},
                       {attributes, mmdb_form::optional},
                       {id},
                       {int32}});
    case ss_times:
      return in_order({{id}, {int64, mmdb_form::array}, {id, mmdb_form::array}});
    case ss_ids:
      return in_order({{id}, {id, mmdb_form::optional_list}});
  }
  return false;
}

}  // namespace

bool mmdb_walk_args(const mmdb_proc_t &proc, XDR &xdr, std::string *text) {
  walker walk(xdr, text);
  for (const mmdb_arg_t &arg : proc.args) {
    if (!walk.arg(arg)) return false;
  }
  return true;
}

}  // namespace qvr
