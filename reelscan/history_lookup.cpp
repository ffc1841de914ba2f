#include "history_lookup.h"

#include <strings.h>

#include <algorithm>
#include <string>
#include <unordered_set>

namespace qvr {

namespace {

bool id_less(const ss_t *a, const ss_t *b) {
  return ksui_cmp(a->ssid, b->ssid) < 0;
}

struct id_hash {
  std::size_t operator()(const ksui &id) const {
    return std::hash<std::string_view>()(
        {reinterpret_cast<const char *>(id.bytes.data()), id.bytes.size()});
  }
};

// What a property of a delete record fills.
struct rebuilt_field_t {
  const char *property;
  void (*fill)(ss_t &ss, std::string_view value);
};
constexpr rebuilt_field_t REBUILT_FIELDS[] = {
    {"longssid", [](ss_t &ss, std::string_view value) { ksui_parse(value, ss.ssid); }},
    {"client_name", [](ss_t &ss, std::string_view value) { ss.client = value; }},
    {"clientid", [](ss_t &ss, std::string_view value) { ksui_parse(value, ss.clientid); }},
    {"label", [](ss_t &ss, std::string_view value) { ss.name = value; }},
};

void fill_from(ss_t &ss, const hist &record) {
  std::string property(record.property);
  for (const rebuilt_field_t &field : REBUILT_FIELDS) {
    if (strcasecmp(field.property, property.c_str()) == 0) field.fill(ss, record.oldvalue);
  }
}

}  // namespace

sorted_save_sets::sorted_save_sets(ss_list &&list) : list_(std::move(list)) {
  std::stable_sort(list_.rows.begin(), list_.rows.end(), id_less);
}

ss_t *sorted_save_sets::find(const ksui &id) const {
  auto at =
      std::lower_bound(list_.rows.begin(), list_.rows.end(), id,
                       [](const ss_t *ss, const ksui &key) { return ksui_cmp(ss->ssid, key) < 0; });
  return at != list_.rows.end() && ksui_cmp((*at)->ssid, id) == 0 ? *at : nullptr;
}

ss_list rebuild_deleted(const hist_list &records) {
  ss_list rebuilt;
  auto page = std::make_shared<arena>();
  rebuilt.pages.push_back(page);
  const hist *started_by = nullptr;
  for (const hist *record : records.rows) {
    if (record->operation != HIST_DELETE) continue;
    if (started_by == nullptr || ksui_cmp(started_by->hist_id, record->hist_id) != 0) {
      started_by = record;
      rebuilt.rows.push_back(page->make<ss_t>());
    }
    fill_from(*rebuilt.rows.back(), *record);
  }
  return rebuilt;
}

std::vector<ksui> distinct_ids(const hist_list &records, std::size_t first, std::size_t limit,
                               std::size_t &next) {
  std::vector<ksui> ids;
  std::unordered_set<ksui, id_hash> seen;
  for (next = first; next < records.size(); next++) {
    const ksui &id = records.rows[next]->hist_id;
    if (seen.contains(id)) continue;
    if (ids.size() == limit) break;
    seen.insert(id);
    ids.push_back(id);
  }
  return ids;
}

}  // namespace qvr
