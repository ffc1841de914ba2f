#include "mmdb_replies.h"

#include "xdr_lists.h"
#include "xdr_records.h"
#include "xdr_shared.h"

namespace qvr {

namespace {

template <class Record>
using get_record = bool (*)(XDR &, arena &, Record &);
template <class Record>
using put_record = bool (*)(XDR &, const Record &);

// A page keeps what it decoded; rows that grew by doubling give back what they do not need.
template <class Record>
void keep_page(record_list<Record> &list, std::shared_ptr<arena> page) {
  if (list.rows.empty()) return;
  if (list.rows.capacity() > list.rows.size() + list.rows.size() / 8) list.rows.shrink_to_fit();
  list.pages.push_back(std::move(page));
}

template <class Record>
bool get_records(XDR &xdr, record_list<Record> &list, get_record<Record> get) {
  list.clear();
  auto page = std::make_shared<arena>();
  bool first = true, counts = true;
  bool good = xdr_get_optional_list(xdr, [&] {
    bool present;
    if (!xdr.get_bool(present)) return false;
    if (first) counts = present;
    first = false;
    if (!present) return true;
    auto *record = page->template make<Record>();
    if (!get(xdr, *page, *record)) return false;
    if (counts) list.rows.push_back(record);
    return true;
  });
  if (!good) {
    list.clear();
    return false;
  }
  keep_page(list, std::move(page));
  return true;
}

template <class Record>
bool put_records(XDR &xdr, const record_list<Record> &list, put_record<Record> put) {
  return xdr_put_optional_list(
      xdr, list.rows, [&](const Record *record) { return xdr.put_u32(1) && put(xdr, *record); });
}

bool put_error(XDR &xdr, const errobj_t *error) {
  return xdr_put_errinfo(xdr, error);
}

// The shape that most replies share: a body for MMDB_OK, an error for all else.
template <class Reply, class Body>
bool get_union(XDR &xdr, Reply &reply, Body body) {
  reply.error = nullptr;
  if (!xdr.get_i32(reply.status)) return false;
  return reply.status == MMDB_OK ? body() : xdr_get_errinfo(xdr, reply.error);
}

template <class Reply, class Body>
bool put_union(XDR &xdr, const Reply &reply, Body body) {
  if (!xdr.put_i32(reply.status)) return false;
  return reply.status == MMDB_OK ? body() : put_error(xdr, reply.error);
}

bool get_id_list(XDR &xdr, std::vector<ksui> &ids) {
  ids.clear();
  return xdr_get_optional_list(xdr, [&] { return xdr_get_ksui(xdr, ids.emplace_back()); });
}

bool get_failure(XDR &xdr, op_failure_t &failure) {
  errobj_t *error = nullptr;
  if (!xdr_get_ksui(xdr, failure.id) || !xdr_get_errinfo(xdr, error)) return false;
  if (error != nullptr) failure.error = *error;
  return true;
}

}  // namespace

bool xdr_put_ss_list(XDR &xdr, const ss_list &list) {
  return put_records(xdr, list, xdr_put_ss);
}
bool xdr_get_ss_list(XDR &xdr, ss_list &list) {
  return get_records(xdr, list, xdr_get_ss);
}
bool xdr_put_vol_list(XDR &xdr, const vol_list &list) {
  return put_records(xdr, list, xdr_put_vol);
}
bool xdr_get_vol_list(XDR &xdr, vol_list &list) {
  return get_records(xdr, list, xdr_get_vol);
}

bool xdr_put_hist_list(XDR &xdr, const hist_list &list) {
  return xdr_put_optional_list(xdr, list.rows,
                               [&](const hist *change) { return xdr_put_hist(xdr, *change); });
}

bool xdr_get_hist_list(XDR &xdr, hist_list &list) {
  list.clear();
  auto page = std::make_shared<arena>();
  bool good = xdr_get_optional_list(xdr, [&] {
    auto *change = page->make<hist>();
    if (!xdr_get_hist(xdr, *page, *change)) return false;
    list.rows.push_back(change);
    return true;
  });
  if (!good) {
    list.clear();
    return false;
  }
  keep_page(list, std::move(page));
  return true;
}

bool xdr_put_reply(XDR &xdr, const ss_reply &reply) {
  return put_union(xdr, reply, [&] { return xdr_put_ss_list(xdr, reply.list); });
}
bool xdr_get_reply(XDR &xdr, ss_reply &reply) {
  return get_union(xdr, reply, [&] { return xdr_get_ss_list(xdr, reply.list); });
}

bool xdr_put_reply(XDR &xdr, const ssr_reply &reply) {
  return put_union(xdr, reply,
                   [&] { return xdr_put_ss_list(xdr, reply.list) && xdr.put_i32(reply.ssr_more); });
}
bool xdr_get_reply(XDR &xdr, ssr_reply &reply) {
  return get_union(xdr, reply,
                   [&] { return xdr_get_ss_list(xdr, reply.list) && xdr.get_i32(reply.ssr_more); });
}

bool xdr_put_reply(XDR &xdr, const vol_reply &reply) {
  return put_union(xdr, reply, [&] { return xdr_put_vol_list(xdr, reply.list); });
}
bool xdr_get_reply(XDR &xdr, vol_reply &reply) {
  return get_union(xdr, reply, [&] { return xdr_get_vol_list(xdr, reply.list); });
}

bool xdr_put_reply(XDR &xdr, const volr_reply &reply) {
  return put_union(xdr, reply, [&] {
    return xdr_put_vol_list(xdr, reply.list) && xdr.put_i32(reply.volr_more);
  });
}
bool xdr_get_reply(XDR &xdr, volr_reply &reply) {
  return get_union(xdr, reply, [&] {
    return xdr_get_vol_list(xdr, reply.list) && xdr.get_i32(reply.volr_more);
  });
}

bool xdr_put_reply(XDR &xdr, const hist_reply &reply) {
  return put_union(xdr, reply, [&] { return xdr_put_hist_list(xdr, reply.list); });
}
bool xdr_get_reply(XDR &xdr, hist_reply &reply) {
  return get_union(xdr, reply, [&] { return xdr_get_hist_list(xdr, reply.list); });
}

bool xdr_put_reply(XDR &xdr, const ssop_reply &reply) {
  return put_union(xdr, reply, [&] {
    return xdr_put_optional_list(xdr, reply.failures, [&](const op_failure_t &failure) {
      return xdr_put_ksui(xdr, failure.id) && put_error(xdr, &failure.error);
    });
  });
}
bool xdr_get_reply(XDR &xdr, ssop_reply &reply) {
  reply.failures.clear();
  return get_union(xdr, reply, [&] {
    return xdr_get_optional_list(xdr,
                                 [&] { return get_failure(xdr, reply.failures.emplace_back()); });
  });
}

bool xdr_put_reply(XDR &xdr, const ids_reply &reply) {
  return put_union(xdr, reply, [&] { return xdr_put_ids(xdr, reply.ids); });
}
bool xdr_get_reply(XDR &xdr, ids_reply &reply) {
  return get_union(xdr, reply, [&] {
    arena page;
    std::span<ksui> ids;
    if (!xdr_get_ids(xdr, page, ids)) return false;
    reply.ids.assign(ids.begin(), ids.end());
    return true;
  });
}

bool xdr_put_reply(XDR &xdr, const clidmap_reply &reply) {
  if (!xdr.put_i32(reply.status)) return false;
  if (reply.status == MMDB_NO_ENTRY) return true;
  if (reply.status != MMDB_OK) return put_error(xdr, reply.error);
  return xdr.put_bool(reply.entry.has_value()) &&
         (!reply.entry || xdr_put_clidmap(xdr, *reply.entry));
}
bool xdr_get_reply(XDR &xdr, clidmap_reply &reply) {
  reply.entry.reset();
  reply.error = nullptr;
  if (!xdr.get_i32(reply.status)) return false;
  if (reply.status == MMDB_NO_ENTRY) return true;
  if (reply.status != MMDB_OK) return xdr_get_errinfo(xdr, reply.error);
  bool present;
  if (!xdr.get_bool(present)) return false;
  return !present || xdr_get_clidmap(xdr, reply.entry.emplace());
}

bool xdr_put_reply(XDR &xdr, const volops_reply &reply) {
  if (!xdr.put_i32(reply.status) || !put_error(xdr, reply.error)) return false;
  return reply.status == MMDB_OK || xdr_put_optional_list(xdr, reply.failed, [&](const ksui &id) {
           return xdr_put_ksui(xdr, id);
         });
}
bool xdr_get_reply(XDR &xdr, volops_reply &reply) {
  reply.failed.clear();
  if (!xdr.get_i32(reply.status) || !xdr_get_errinfo(xdr, reply.error)) return false;
  return reply.status == MMDB_OK || get_id_list(xdr, reply.failed);
}

bool xdr_put_reply(XDR &xdr, const bools_reply &reply) {
  return put_union(xdr, reply,
                   [&] { return xdr.put_i32(reply.first) && xdr.put_i32(reply.second); });
}
bool xdr_get_reply(XDR &xdr, bools_reply &reply) {
  return get_union(xdr, reply,
                   [&] { return xdr.get_i32(reply.first) && xdr.get_i32(reply.second); });
}

}  // namespace qvr
