#include "mmdb_args.h"

#include "xdr_records.h"
#include "xdr_shared.h"

namespace qvr {

namespace {

// The two directions behind one list of fields a structure.
class putter {
 public:
  explicit putter(XDR &xdr) : xdr_(xdr) {}

  bool operator()(bool value) { return xdr_.put_bool(value); }
  bool operator()(std::int32_t value) { return xdr_.put_i32(value); }
  bool operator()(std::uint32_t value) { return xdr_.put_u32(value); }
  bool operator()(std::int64_t value) { return xdr_.put_i64(value); }
  bool operator()(std::string_view value) { return xdr_put_text(xdr_, value); }
  bool operator()(std::span<const ksui> ids) { return xdr_put_ids(xdr_, ids); }
  bool operator()(std::span<const std::int64_t> times) { return xdr_put_times(xdr_, times); }
  bool operator()(const mr_range &range) { return xdr_put_mr(xdr_, range); }
  bool optional(const ksui &id) { return xdr_.put_u32(1) && xdr_put_ksui(xdr_, id); }
  bool optional(const mr_range &range) { return xdr_.put_u32(1) && xdr_put_mr(xdr_, range); }
  bool optional(const attrlist &list) { return xdr_put_optional_attrlist(xdr_, list); }
  bool optional(const ksui &id, std::string_view name) {
    return xdr_.put_u32(1) && xdr_put_ksui(xdr_, id) && xdr_put_text(xdr_, name);
  }

 private:
  XDR &xdr_;
};

class getter {
 public:
  getter(XDR &xdr, arena &page) : xdr_(xdr), page_(page) {}

  bool operator()(bool &value) { return xdr_.get_bool(value); }
  bool operator()(std::int32_t &value) { return xdr_.get_i32(value); }
  bool operator()(std::uint32_t &value) { return xdr_.get_u32(value); }
  bool operator()(std::int64_t &value) { return xdr_.get_i64(value); }
  bool operator()(std::string_view &value) { return xdr_get_text(xdr_, page_, value); }
  bool operator()(std::span<const ksui> &ids) {
    std::span<ksui> got;
    if (!xdr_get_ids(xdr_, page_, got)) return false;
    ids = got;
    return true;
  }
  bool operator()(std::span<const std::int64_t> &times) {
    std::span<std::int64_t> got;
    if (!xdr_get_times(xdr_, page_, got)) return false;
    times = got;
    return true;
  }
  bool operator()(mr_range &range) { return xdr_get_mr(xdr_, range); }
  bool optional(ksui &id) {
    return present([&] { return xdr_get_ksui(xdr_, id); });
  }
  bool optional(mr_range &range) {
    return present([&] { return xdr_get_mr(xdr_, range); });
  }
  bool optional(attrlist &list) { return xdr_get_optional_attrlist(xdr_, list); }
  bool optional(ksui &id, std::string_view &name) {
    return present([&] { return xdr_get_ksui(xdr_, id) && xdr_get_text(xdr_, page_, name); });
  }

 private:
  template <class Get>
  bool present(Get get) {
    bool there;
    return xdr_.get_bool(there) && (!there || get());
  }

  XDR &xdr_;
  arena &page_;
};

template <class Args, class Plain>
concept args_of = std::same_as<std::remove_const_t<Args>, Plain>;

template <class S>
bool fields(S &s, args_of<mmdb_ids_args> auto &a) {
  return s(a.ids) && s(a.full);
}
template <class S>
bool fields(S &s, args_of<mmdb_client_times_args> auto &a) {
  return s(a.client) && s(a.times) && s(a.full);
}
template <class S>
bool fields(S &s, args_of<mmdb_times_args> auto &a) {
  return s(a.times) && s.optional(a.attrs) && s(a.full);
}
template <class S>
bool fields(S &s, args_of<mmdb_clients_args> auto &a) {
  return s(a.client) && s(a.name);
}
template <class S>
bool fields(S &s, args_of<mmdb_family_args> auto &a) {
  return s(a.family) && s(a.type) && s(a.flagmask) && s(a.flags) && s(a.full);
}
template <class S>
bool fields(S &s, args_of<mmdb_vol_id_args> auto &a) {
  return s.optional(a.volid) && s(a.full);
}
template <class S>
bool fields(S &s, args_of<mmdb_vol_text_args> auto &a) {
  return s(a.text) && s(a.full);
}
template <class S>
bool fields(S &s, args_of<mmdb_pool_args> auto &a) {
  return s(a.pool) && s(a.flagmask) && s(a.flags) && s(a.full);
}
template <class S>
bool fields(S &s, args_of<mmdb_location_args> auto &a) {
  return s(a.location) && s(a.range) && s(a.full);
}
template <class S>
bool fields(S &s, args_of<mmdb_clidmap_args> auto &a) {
  return s.optional(a.clientid, a.clientname);
}
template <class S>
bool fields(S &s, args_of<ss_query_t> auto &a) {
  return s(a.all) && s(a.client) && s(a.name) && s.optional(a.attrs) && s(a.time) && s(a.level) &&
         s(a.full);
}
template <class S>
bool fields(S &s, args_of<ss_page_t> auto &a) {
  return s(a.client) && s(a.name) && s.optional(a.attrs) && s.optional(a.range) && s(a.level) &&
         s.optional(a.filter) && s.optional(a.last) && s(a.full);
}
template <class S>
bool fields(S &s, args_of<history_query_t> auto &a) {
  return s.optional(a.ssid) && s(a.clone) && s.optional(a.range) && s.optional(a.attrs) &&
         s.optional(a.filter);
}

template <class Args>
bool put(XDR &xdr, const Args &args) {
  putter s(xdr);
  return fields(s, args);
}
template <class Args>
bool get(XDR &xdr, arena &page, Args &args) {
  getter s(xdr, page);
  return fields(s, args);
}

}  // namespace

#define BOTH_WAYS(Args)                                  \
  bool xdr_put_args(XDR &xdr, const Args &args) {        \
    return put(xdr, args);                               \
  }                                                      \
  bool xdr_get_args(XDR &xdr, arena &page, Args &args) { \
    return get(xdr, page, args);                         \
  }

BOTH_WAYS(mmdb_ids_args)
BOTH_WAYS(mmdb_client_times_args)
BOTH_WAYS(mmdb_times_args)
BOTH_WAYS(mmdb_clients_args)
BOTH_WAYS(mmdb_family_args)
BOTH_WAYS(mmdb_vol_id_args)
BOTH_WAYS(mmdb_vol_text_args)
BOTH_WAYS(mmdb_pool_args)
BOTH_WAYS(mmdb_location_args)
BOTH_WAYS(mmdb_clidmap_args)
BOTH_WAYS(ss_query_t)
BOTH_WAYS(ss_page_t)
BOTH_WAYS(history_query_t)

#undef BOTH_WAYS

}  // namespace qvr
