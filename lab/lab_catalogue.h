// The catalogue that the lab serves: records encoded once, with the keys that requests select on.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

#include "arena.h"
#include "catalogue_sink.h"
#include "packed_attrs.h"

namespace qvr {

// A record as a node of a list on the wire: the words "a node follows" and "it has a record", then
// the record. What a request for less than the full record gets is the node's head, then a zero
// count in place of the array that ends the record.
struct encoded_record {
  const char *node = nullptr;
  std::uint32_t full_size = 0;
  std::uint32_t head_size = 0;  // without the count of the last array

  std::string_view full() const { return {node, full_size}; }
  std::string_view head() const { return {node, head_size}; }
};

struct ss_row {
  encoded_record encoded;
  std::int64_t savetime = 0;
  std::int32_t level = 0;
  std::uint32_t client = 0;    // number of its client's text
  std::uint32_t name = 0;      // number of its name's text
  std::uint32_t attrs_at = 0;  // of the attribute series in the node; 0: none
  ksui ssid;

  packed_attrs attrs() const {
    return attrs_at == 0 ? packed_attrs()
                         : packed_attrs({encoded.node + attrs_at, encoded.head_size - attrs_at});
  }
};

struct vol_row {
  encoded_record encoded;
  vol_t record;  // texts in the catalogue; without attributes and save sets
};

struct history_row {
  hist record;  // texts in the catalogue
  std::uint32_t client = 0;
  std::uint32_t name = 0;
  ksui clientid;
};

// Texts by number. Numbers count from 0 in the order of first use.
class text_table {
 public:
  // With `fold`, texts that differ only in the case of ASCII letters share a number.
  explicit text_table(bool fold) : fold_(fold) {}
  std::uint32_t number_of(std::string_view text);
  bool find(std::string_view text, std::uint32_t &number) const;
  const std::string &text(std::uint32_t number) const { return texts_[number]; }
  std::size_t size() const { return texts_.size(); }

 private:
  std::string key(std::string_view text) const;
  bool fold_;
  std::vector<std::string> texts_;
  std::unordered_map<std::string, std::uint32_t> numbers_;
};

// Filled through its sink by one thread, then closed by finish(); from then on any thread reads.
class lab_catalogue final : public catalogue_sink {
 public:
  void add_client(const lab_client &client) override { clients_.push_back(client); }
  void add_resource(const lab_resource &resource) override { resources_.push_back(resource); }
  void add_vol(const vol_t &vol) override;
  void add_ss(const ss_t &ss) override;
  void add_history(const lab_history &history) override;
  // Sorts, encodes what waits for the whole, and builds the keys.
  void finish();

  // Save sets in ascending order of save time, then of their id's bytes.
  std::span<const ss_row> savesets() const { return savesets_; }
  // Rows of savesets() of one client, in the same order. Empty for an unknown name.
  std::span<const std::uint32_t> savesets_of(std::string_view client) const;
  // Calls `each` with every save set that the id means (a short id may mean several).
  template <class Each>
  void find_savesets(const ksui &id, Each each) const {
    auto [at, end] = short_ids(id.word(1));
    for (; at != end; ++at) {
      const ss_row &row = savesets_[at->second];
      if (ksui_cmp(row.ssid, id) == 0) each(row);
    }
  }
  std::span<const vol_row> volumes() const { return volumes_; }
  std::span<const history_row> history() const { return history_; }  // ascending timestamps
  std::span<const lab_client> clients() const { return clients_; }
  std::span<const lab_resource> resources() const { return resources_; }

  const text_table &client_texts() const { return client_texts_; }
  const text_table &name_texts() const { return name_texts_; }
  // Client id of a save set, which lies in its encoded record.
  static ksui clientid_of(const ss_row &row);

 private:
  using short_id = std::pair<std::uint32_t, std::uint32_t>;  // short id, row
  std::pair<const short_id *, const short_id *> short_ids(std::uint32_t number) const;
  void add_unlisted_clients();
  encoded_record keep(std::string_view bytes, std::size_t last_array);

  struct id_hash {
    std::size_t operator()(const ksui &id) const {
      return std::hash<std::string_view>()(
          {reinterpret_cast<const char *>(id.bytes.data()), id.bytes.size()});
    }
  };

  arena memory_;
  text_table client_texts_{true};
  text_table name_texts_{false};
  std::vector<ss_row> savesets_;
  std::vector<std::vector<std::uint32_t>> by_client_;
  std::vector<short_id> by_short_id_;
  std::vector<vol_row> volumes_;
  std::unordered_map<ksui, std::vector<ksui>, id_hash> on_volume_;
  std::vector<history_row> history_;
  std::vector<lab_client> clients_;
  std::vector<lab_resource> resources_;
};

}  // namespace qvr
