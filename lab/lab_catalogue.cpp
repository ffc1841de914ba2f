#include "lab_catalogue.h"

#include <algorithm>
#include <cstring>

#include "xdr_records.h"

namespace qvr {

namespace {

constexpr std::size_t CLIENTID_AT = 8 + 4 + 20 + 20 + 4 + 4 * 8;  // in the node of a save set
constexpr std::size_t FRAGMENT_SIZE = 8 + 20 + 3 * 4 + 8;

std::size_t counted_size(std::string_view text) {
  return 4 + ((text.size() + 3) & ~std::size_t{3});
}

bool by_time_and_id(const ss_row &a, const ss_row &b) {
  if (a.savetime != b.savetime) return a.savetime < b.savetime;
  return a.ssid.bytes < b.ssid.bytes;
}

}  // namespace

std::string text_table::key(std::string_view text) const {
  std::string folded(text);
  if (!fold_) return folded;
  for (char &c : folded) {
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
  }
  return folded;
}

std::uint32_t text_table::number_of(std::string_view text) {
  auto [at, is_new] = numbers_.try_emplace(key(text), static_cast<std::uint32_t>(texts_.size()));
  if (is_new) texts_.emplace_back(text);
  return at->second;
}

bool text_table::find(std::string_view text, std::uint32_t &number) const {
  auto at = numbers_.find(key(text));
  if (at == numbers_.end()) return false;
  number = at->second;
  return true;
}

// Puts the words of a list node in front of an encoded record. `last_array` is the size of the
// array that ends the record, its count included.
encoded_record lab_catalogue::keep(std::string_view bytes, std::size_t last_array) {
  auto *node = static_cast<std::uint8_t *>(memory_.take(8 + bytes.size(), 4));
  XDR::store32(node, 1);
  XDR::store32(node + 4, 1);
  std::memcpy(node + 8, bytes.data(), bytes.size());
  return {reinterpret_cast<const char *>(node), static_cast<std::uint32_t>(8 + bytes.size()),
          static_cast<std::uint32_t>(8 + bytes.size() - last_array)};
}

void lab_catalogue::add_ss(const ss_t &ss) {
  std::size_t clones_size = 4;
  for (const clone_t &clone : ss.copies()) clones_size += 8 + 4 + 4 + clone.nfrags * FRAGMENT_SIZE;
  xdr_memory_writer writer;
  xdr_put_ss(writer, ss);
  ss_row row;
  row.encoded = keep(writer.bytes(), clones_size);
  row.savetime = ss.savetime;
  row.level = ss.level;
  row.client = client_texts_.number_of(ss.client);
  row.name = name_texts_.number_of(ss.name);
  row.ssid = ss.ssid;
  if (!ss.attrs.empty()) {
    row.attrs_at = static_cast<std::uint32_t>(CLIENTID_AT + 20 + 4 + counted_size(ss.client) +
                                              counted_size(ss.name) + 2 * 8 + 2 * 4 + 4);
  }
  savesets_.push_back(row);
  for (const clone_t &clone : ss.copies()) {
    for (const frag_t &frag : clone.fragments()) {
      std::vector<ksui> &ids = on_volume_[frag.volid];
      if (ids.empty() || ids.back() != ss.ssid) ids.push_back(ss.ssid);
    }
  }
}

void lab_catalogue::add_vol(const vol_t &vol) {
  vol_row row;
  row.record = vol;
  for (auto text : {&vol_t::volume, &vol_t::family, &vol_t::type, &vol_t::location, &vol_t::pool,
                    &vol_t::barcode})
    row.record.*text = memory_.copy(vol.*text);
  row.record.volattrs = packed_attrs(memory_.copy(vol.volattrs.series()));
  row.record.nssids = 0;
  row.record.ssids = nullptr;
  volumes_.push_back(row);
}

void lab_catalogue::add_history(const lab_history &history) {
  history_row row;
  row.record = history.record;
  for (auto text : {&hist::user, &hist::property, &hist::oldvalue, &hist::newvalue})
    row.record.*text = memory_.copy(history.record.*text);
  row.client = client_texts_.number_of(history.client);
  row.name = name_texts_.number_of(history.name);
  row.clientid = history.clientid;
  history_.push_back(row);
}

void lab_catalogue::finish() {
  if (!std::is_sorted(savesets_.begin(), savesets_.end(), by_time_and_id))
    std::sort(savesets_.begin(), savesets_.end(), by_time_and_id);
  by_client_.assign(client_texts_.size(), {});
  by_short_id_.clear();
  by_short_id_.reserve(savesets_.size());
  for (std::uint32_t i = 0; i < savesets_.size(); i++) {
    by_client_[savesets_[i].client].push_back(i);
    by_short_id_.emplace_back(savesets_[i].ssid.word(1), i);
  }
  std::sort(by_short_id_.begin(), by_short_id_.end());
  add_unlisted_clients();
  for (vol_row &row : volumes_) {
    vol_t whole = row.record;
    std::vector<ksui> &ids = on_volume_[row.record.volid];
    whole.ssids = ids.data();
    whole.nssids = static_cast<std::uint32_t>(ids.size());
    xdr_memory_writer writer;
    xdr_put_vol(writer, whole);
    row.encoded = keep(writer.bytes(), 4 + 20 * ids.size());
  }
  on_volume_.clear();
  std::stable_sort(history_.begin(), history_.end(), [](const auto &a, const auto &b) {
    if (a.record.timestamp != b.record.timestamp) return a.record.timestamp < b.record.timestamp;
    return a.record.hist_id.bytes < b.record.hist_id.bytes;
  });
}

// A client that owns save sets is known, listed or not.
void lab_catalogue::add_unlisted_clients() {
  text_table listed(true);
  std::uint32_t number;
  for (const lab_client &client : clients_) listed.number_of(client.name);
  for (const std::vector<std::uint32_t> &rows : by_client_) {
    if (rows.empty()) continue;
    const ss_row &row = savesets_[rows.front()];
    const std::string &name = client_texts_.text(row.client);
    if (!name.empty() && !listed.find(name, number)) clients_.push_back({clientid_of(row), name});
  }
}

std::span<const std::uint32_t> lab_catalogue::savesets_of(std::string_view client) const {
  std::uint32_t number;
  if (!client_texts_.find(client, number)) return {};
  return by_client_[number];
}

std::pair<const lab_catalogue::short_id *, const lab_catalogue::short_id *>
lab_catalogue::short_ids(std::uint32_t number) const {
  const short_id *begin = by_short_id_.data(), *end = begin + by_short_id_.size();
  return {std::lower_bound(begin, end, short_id(number, 0)),
          std::upper_bound(begin, end, short_id(number, UINT32_MAX))};
}

ksui lab_catalogue::clientid_of(const ss_row &row) {
  ksui id;
  std::memcpy(id.bytes.data(), row.encoded.node + CLIENTID_AT, id.bytes.size());
  return id;
}

}  // namespace qvr
