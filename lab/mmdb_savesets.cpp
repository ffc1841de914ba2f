#include <algorithm>
#include <unordered_set>

#include "lab_state.h"
#include "mmdb_calls.h"
#include "ss_selection.h"
#include "xdr_records.h"
#include "xdr_shared.h"

namespace qvr {

namespace {

constexpr std::int64_t PAGE_MAX = 8192;

bool get_times(XDR &in, std::vector<std::int64_t> &times) {
  std::uint32_t count = 0;
  if (!in.get_u32(count) || count > MMDB_LIST_MAX || count > in.remaining() / 8) return false;
  times.resize(count);
  return std::all_of(times.begin(), times.end(),
                     [&](std::int64_t &time) { return in.get_i64(time); });
}

bool answer_times(lab_exchange &call, const std::string &client, const attrlist &attrs,
                  std::vector<std::int64_t> &times, bool full) {
  if (call.telling) {
    call.args.add("client", client).add("full", full);
    call.args.add_raw("times",
                      json_array(times, [](std::int64_t time) { return std::to_string(time); }));
    call.args.add_raw("attrs", tell_attrs(attrs));
  }
  if (!begin_list(call)) return true;
  std::sort(times.begin(), times.end());
  times.erase(std::unique(times.begin(), times.end()), times.end());
  ss_selection selection(call.lab.catalogue, client, "", 0, attrs, {});
  for (std::int64_t time : times) {
    selection.walk(time, time, [&](const ss_row &row) {
      put_record(call, row.encoded, full);
      return true;
    });
  }
  end_list(call);
  return true;
}

struct range_request {
  std::string client, name;
  attrlist attrs, filter;
  time_bounds range;
  std::int32_t level = 0;
  ksui last;
  bool full = false;
};

bool get_range_request(lab_exchange &call, range_request &request) {
  if (!get_text(call.in, request.client) || !get_text(call.in, request.name) ||
      !xdr_get_optional_attrlist(call.in, request.attrs) ||
      !get_optional_range(call.in, request.range) || !call.in.get_i32(request.level) ||
      !xdr_get_optional_attrlist(call.in, request.filter) ||
      !get_optional_id(call.in, request.last) || !call.in.get_bool(request.full))
    return false;
  if (!call.telling) return true;
  call.args.add("client", request.client).add("name", request.name);
  call.args.add_raw("attrs", tell_attrs(request.attrs)).add_raw("range", tell_range(request.range));
  call.args.add("level", request.level).add_raw("filter", tell_attrs(request.filter));
  call.args.add_raw("last", tell_id(request.last)).add("full", request.full);
  return true;
}

// True for a save set that an earlier page has brought: of the save time at which this page starts,
// and not behind the last one in the catalogue's order.
bool is_behind(const range_request &request, const ss_row &row) {
  return request.last.is_null() || row.savetime != request.range.from ||
         row.ssid.bytes > request.last.bytes;
}

// The save sets of one page. `more` says whether others follow and how to go on: 2 behind the last
// record, 1 at the next second.
std::vector<const ss_row *> make_page(const lab_exchange &call, const range_request &request,
                                      std::int32_t &more) {
  std::int64_t limit = request.range.count;
  if (limit <= 0 || limit > PAGE_MAX) limit = PAGE_MAX;
  if (call.lab.options.page != 0) limit = std::min(limit, call.lab.options.page);
  ss_selection selection(call.lab.catalogue, request.client, request.name, request.level,
                         request.attrs, request.filter);
  std::vector<const ss_row *> page;
  more = 0;
  selection.walk(request.range.from, request.range.to, [&](const ss_row &row) {
    if (!is_behind(request, row)) return true;
    if (static_cast<std::int64_t>(page.size()) == limit) {
      more = call.lab.options.more;
      // Going on at the next second is right only when this page ends with its second's last.
      if (more != 1 || page.back()->savetime != row.savetime) return false;
      std::size_t whole = page.size();
      while (whole > 0 && page[whole - 1]->savetime == row.savetime) whole--;
      if (whole == 0)
        more = 2;
      else
        page.resize(whole);
      return false;
    }
    page.push_back(&row);
    return true;
  });
  return page;
}

}  // namespace

bool mmdb_fetch_ids(lab_exchange &call) {
  std::uint32_t count = 0;
  if (!call.in.get_u32(count) || count > MMDB_LIST_MAX || count > call.in.remaining() / 20)
    return false;
  std::vector<ksui> ids(count);
  for (ksui &id : ids) {
    if (!get_id(call.in, id)) return false;
  }
  bool full = false;
  if (!call.in.get_bool(full)) return false;
  if (call.telling) call.args.add_raw("ids", json_array(ids, tell_id)).add("full", full);
  if (!begin_list(call)) return true;
  for (const ksui &id : ids) {
    call.lab.catalogue.find_savesets(
        id, [&](const ss_row &row) { put_record(call, row.encoded, full); });
  }
  end_list(call);
  return true;
}

bool mmdb_get_ss(lab_exchange &call) {
  bool all = false, full = false;
  std::string client, name;
  attrlist attrs;
  std::int64_t time = 0;
  std::int32_t level = 0;
  if (!call.in.get_bool(all) || !get_text(call.in, client) || !get_text(call.in, name) ||
      !xdr_get_optional_attrlist(call.in, attrs) || !call.in.get_i64(time) ||
      !call.in.get_i32(level) || !call.in.get_bool(full))
    return false;
  if (call.telling) {
    call.args.add("all", all).add("client", client).add("name", name);
    call.args.add_raw("attrs", tell_attrs(attrs)).add("time", time);
    call.args.add("level", level).add("full", full);
  }
  if (!begin_list(call)) return true;
  ss_selection selection(call.lab.catalogue, client, name, level, attrs, {});
  auto put = [&](const ss_row &row) {
    put_record(call, row.encoded, full);
    return all;
  };
  if (all)
    selection.walk(time, INT64_MAX, put);
  else
    selection.walk_back(time == 0 ? INT64_MAX : time, put);
  end_list(call);
  return true;
}

bool mmdb_get_ss_times_client(lab_exchange &call) {
  std::string client;
  std::vector<std::int64_t> times;
  bool full = false;
  if (!get_text(call.in, client) || !get_times(call.in, times) || !call.in.get_bool(full))
    return false;
  return answer_times(call, client, {}, times, full);
}

bool mmdb_get_ss_times(lab_exchange &call) {
  std::vector<std::int64_t> times;
  attrlist attrs;
  bool full = false;
  if (!get_times(call.in, times) || !xdr_get_optional_attrlist(call.in, attrs) ||
      !call.in.get_bool(full))
    return false;
  return answer_times(call, "", attrs, times, full);
}

bool mmdb_get_ss_range(lab_exchange &call) {
  range_request request;
  if (!get_range_request(call, request)) return false;
  if (call.fault.repeat) request.last = ksui();
  if (!begin_list(call)) {
    if (call.fault.nodes) call.out.put_i32(0);
    return true;
  }
  std::int32_t more = 0;
  for (const ss_row *row : make_page(call, request, more))
    put_record(call, row->encoded, request.full);
  end_list(call);
  if (call.fault.repeat) more = 2;
  if (call.fault.more) more = *call.fault.more;
  call.out.put_i32(more);
  call.status = "more " + std::to_string(more);
  return true;
}

bool mmdb_get_clients(lab_exchange &call) {
  std::string client, name;
  if (!get_text(call.in, client) || !get_text(call.in, name)) return false;
  if (call.telling) call.args.add("client", client).add("name", name);
  if (!begin_list(call)) return true;
  auto put = [&](const ss_t &ss) {
    xdr_memory_writer writer;
    xdr_put_ss(writer, ss);
    call.out.put_bool(true);
    call.out.put_bool(true);
    call.out.put_bytes(writer.bytes());
    call.records++;
  };
  const lab_catalogue &catalogue = call.lab.catalogue;
  if (client.empty()) {
    for (const lab_client &row : catalogue.clients()) {
      ss_t ss;
      ss.client = row.name;
      ss.clientid = row.clientid;
      put(ss);
    }
  } else {
    std::unordered_set<std::uint32_t> seen;
    ss_selection selection(catalogue, client, name, 0, {}, {});
    selection.walk(0, INT64_MAX, [&](const ss_row &row) {
      if (!seen.insert(row.name).second) return true;
      ss_t ss;
      ss.client = catalogue.client_texts().text(row.client);
      ss.name = catalogue.name_texts().text(row.name);
      ss.clientid = lab_catalogue::clientid_of(row);
      put(ss);
      return true;
    });
  }
  end_list(call);
  return true;
}

bool mmdb_get_clidmap(lab_exchange &call) {
  bool present = false;
  ksui id;
  std::string name;
  if (!call.in.get_bool(present) || (present && (!get_id(call.in, id) || !get_text(call.in, name))))
    return false;
  if (call.telling) call.args.add_raw("clientid", tell_id(id)).add("clientname", name);
  if (call.fault.error) {
    call.out.put_u32(MMDB_FAILED);
    put_told_failure(call);
    return true;
  }
  for (const lab_client &row : call.lab.catalogue.clients()) {
    bool found =
        id.is_null() ? !name.empty() && attr_name_cmp(row.name, name) == 0 : row.clientid == id;
    if (!found) continue;
    call.out.put_u32(MMDB_OK);
    call.out.put_bool(true);
    call.out.put_bytes({reinterpret_cast<const char *>(row.clientid.bytes.data()), 20});
    call.out.put_counted(row.name);
    call.records = 1;
    return true;
  }
  call.out.put_u32(MMDB_NO_ENTRY);
  call.status = "no entry";
  return true;
}

}  // namespace qvr
