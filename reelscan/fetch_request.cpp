#include "fetch_request.h"

#include "dates.h"
#include "session.h"

namespace qvr {

namespace {

// An absent text is one without data.
std::string_view sent(const std::optional<std::string> &text) {
  return text ? std::string_view(*text) : std::string_view();
}

using asked = const plan_request_t &;

vol_list by_name(asked r) {
  return get_vols_name(sent(r.volume), r.full);
}
vol_list by_location(asked r) {
  return get_vols_location(sent(r.location), r.full);
}
vol_list by_family(asked r) {
  return get_vols_family(sent(r.family), sent(r.type), r.flag_mask, r.flag_value, r.full);
}
vol_list by_pool(asked r) {
  return get_vols_pool(sent(r.pool), r.flag_mask, r.flag_value, r.full);
}
vol_list by_barcode(asked r) {
  return get_vols_barcode(sent(r.barcode), r.full);
}
vol_list by_id(asked r) {
  return r.volid.is_invalid() ? vol_list() : get_vol_id_list(r.volid, r.full);
}

ss_list by_attributes(asked r) {
  ss_page_t page;
  page.client = sent(r.client);
  page.name = sent(r.name);
  page.attrs = r.attrs;
  page.filter = r.filter;
  page.level = r.level;
  page.full = r.full;
  page.range.mr_start_time = static_cast<std::uint64_t>(r.from.value_or(0));
  page.range.mr_end_time = static_cast<std::uint64_t>(r.to.value_or(TIME_FOREVER));
  return get_ss_page(page);
}

ss_list by_ss_name(asked r) {
  ss_query_t query;
  query.all = true;
  query.client = sent(r.client);
  query.name = sent(r.name);
  query.time = r.from.value_or(0);
  query.level = r.level;
  query.full = r.full;
  return get_ss_query(query);
}

ss_list by_ssid(asked r) {
  return r.ssid.is_invalid() ? ss_list() : fetchss_ids({&r.ssid, 1}, r.full);
}

ss_list by_time(asked r) {
  const std::int64_t times[] = {r.from.value_or(0)};
  if (r.clients.empty()) return fetchss_times({}, times, r.full);
  ss_list all;
  for (const std::string &client : r.clients) {
    ss_list found = fetchss_times(client, times, r.full);
    // The next client's request would clear the error, and the report be short without a word.
    if (found.empty() && mif_last_error() != nullptr) return {};
    all.append(std::move(found));
  }
  return all;
}

template <class List>
struct sender_row_t {
  request_kind kind;
  List (*send)(asked);
};
constexpr sender_row_t<vol_list> volume_senders[] = {
    {request_kind::vols_name, by_name},       {request_kind::vols_location, by_location},
    {request_kind::vols_family, by_family},   {request_kind::vols_pool, by_pool},
    {request_kind::vols_barcode, by_barcode}, {request_kind::vol_id_list, by_id},
};
constexpr sender_row_t<ss_list> save_set_senders[] = {
    {request_kind::ss_page, by_attributes},
    {request_kind::ss_query, by_ss_name},
    {request_kind::ss_ids, by_ssid},
    {request_kind::ss_times, by_time},
};

template <class List, std::size_t Count>
List send(const sender_row_t<List> (&rows)[Count], asked request) {
  for (const sender_row_t<List> &row : rows) {
    if (row.kind == request.kind) return row.send(request);
  }
  return {};
}

}  // namespace

vol_list fetch_planned_volumes(const plan_request_t &request) {
  vol_list list = send(volume_senders, request);
  drop_bad_vols(list);
  return list;
}

ss_list fetch_planned_save_sets(const plan_request_t &request) {
  return send(save_set_senders, request);
}

}  // namespace qvr
