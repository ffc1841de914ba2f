#include <algorithm>

#include "ksui.h"
#include "lab_state.h"
#include "mmdb_calls.h"
#include "xdr_records.h"
#include "xdr_shared.h"

namespace qvr {

namespace {

constexpr std::int64_t OLD_FOREVER = 0x7fffffff;

struct history_request {
  ksui ssid;
  std::int64_t clone = 0;
  time_bounds range;
  attrlist attrs, filter;
};

std::string operation_text(std::int32_t operation) {
  static const char *const texts[] = {"create", "update", "delete"};
  return operation >= 0 && operation < 3 ? texts[operation] : "undef";
}

// What a condition of a name is held against: one or two texts of a record.
struct condition_row {
  std::string_view name;
  std::vector<std::string> (*texts)(const lab_catalogue &, const history_row &);
};

template <std::string_view hist::*Member>
std::vector<std::string> text_of(const lab_catalogue &, const history_row &row) {
  return {std::string(row.record.*Member)};
}

const condition_row CONDITIONS[] = {
    {"client_name",
     [](const lab_catalogue &catalogue, const history_row &row) -> std::vector<std::string> {
       return {catalogue.client_texts().text(row.client)};
     }},
    {"label",
     [](const lab_catalogue &catalogue, const history_row &row) -> std::vector<std::string> {
       return {catalogue.name_texts().text(row.name)};
     }},
    {"client_id",
     [](const lab_catalogue &, const history_row &row) -> std::vector<std::string> {
       return {ksui_text(row.clientid, ksui_form::long_form)};
     }},
    {"user", text_of<&hist::user>},
    {"property", text_of<&hist::property>},
    {"old_value", text_of<&hist::oldvalue>},
    {"new_value", text_of<&hist::newvalue>},
    {"validity",
     [](const lab_catalogue &, const history_row &row) -> std::vector<std::string> {
       return {std::to_string(row.record.validity)};
     }},
    {"operation",
     [](const lab_catalogue &, const history_row &row) -> std::vector<std::string> {
       return {operation_text(row.record.operation), std::to_string(row.record.operation)};
     }},
};

bool same_text(std::string_view a, std::string_view b) {
  return a.size() == b.size() && attr_name_cmp(a, b) == 0;
}

// A name that is no condition asks nothing.
bool holds(const lab_catalogue &catalogue, const history_row &row, const attr_t &wanted) {
  for (const condition_row &condition : CONDITIONS) {
    if (!same_text(condition.name, wanted.name)) continue;
    std::vector<std::string> texts = condition.texts(catalogue, row);
    return std::any_of(wanted.values.begin(), wanted.values.end(), [&](const std::string &value) {
      return std::any_of(texts.begin(), texts.end(),
                         [&](const std::string &text) { return same_text(text, value); });
    });
  }
  return true;
}

bool fits(const lab_catalogue &catalogue, const history_row &row, const history_request &request) {
  const hist &record = row.record;
  if (!request.ssid.is_null() && ksui_cmp(record.hist_id, request.ssid) != 0) return false;
  if (request.clone != 0 && record.hist_clone != request.clone) return false;
  if (record.timestamp < request.range.from || record.timestamp > request.range.to) return false;
  for (const attrlist *list : {&request.attrs, &request.filter}) {
    for (const attr_t &wanted : *list) {
      if (!holds(catalogue, row, wanted)) return false;
    }
  }
  return true;
}

void put_hist(lab_exchange &call, const hist &record) {
  xdr_memory_writer writer;
  xdr_put_hist(writer, record);
  call.out.put_bool(true);
  call.out.put_bytes(writer.bytes());
  call.records++;
}

}  // namespace

bool mmdb_get_history(lab_exchange &call) {
  history_request request;
  if (!get_optional_id(call.in, request.ssid) || !call.in.get_i64(request.clone) ||
      !get_optional_range(call.in, request.range) ||
      !xdr_get_optional_attrlist(call.in, request.attrs) ||
      !xdr_get_optional_attrlist(call.in, request.filter))
    return false;
  if (request.range.to == OLD_FOREVER) request.range.to = INT64_MAX;
  if (call.telling) {
    call.args.add_raw("ssid", tell_id(request.ssid)).add("clone", request.clone);
    call.args.add_raw("range", tell_range(request.range));
    call.args.add_raw("attrs", tell_attrs(request.attrs));
    call.args.add_raw("filter", tell_attrs(request.filter));
  }
  if (!begin_list(call)) return true;
  const lab_catalogue &catalogue = call.lab.catalogue;
  bool only_count = attrlist_has(request.attrs, "change count", "Yes");
  std::uint64_t changes = 0;
  std::int64_t left = request.range.count <= 0 ? INT64_MAX : request.range.count;
  for (const history_row &row : catalogue.history()) {
    if (!fits(catalogue, row, request)) continue;
    changes++;
    if (only_count) continue;
    if (left-- <= 0) break;
    put_hist(call, row.record);
  }
  if (only_count) {
    hist count;
    count.changes = changes;
    put_hist(call, count);
  }
  end_list(call);
  return true;
}

}  // namespace qvr
