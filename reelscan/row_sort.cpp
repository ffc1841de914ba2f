#include "row_sort.h"

#include <strings.h>

#include <algorithm>
#include <cstring>
#include <memory>
#include <numeric>
#include <unordered_map>

#include "dates.h"
#include "packed_keys.h"

namespace qvr {

namespace {

constexpr std::uint64_t SIGN = std::uint64_t{1} << 63;

std::uint64_t signed_key(std::int64_t value) {
  return static_cast<std::uint64_t>(value) ^ SIGN;
}

// In the order of time_cmp: both forms of forever are one time behind all others.
std::uint64_t time_key(std::int64_t time) {
  return signed_key(time_is_forever(time) ? TIME_FOREVER : time);
}

std::int64_t expiry(const ss_t &ss) {
  return ss.ssretent == 0 ? 0 : time_add(ss.ssretent, ss.ssinsert);
}

// Texts as their ranks: equal texts have one rank.
class text_ranks {
 public:
  // A report repeats few texts: a place for each likely one saves most look-ups.
  std::uint32_t number_of(std::string_view text) {
    recent_t &recent = recent_[place_of(text)];
    if (recent.text == text && recent.text.data() != nullptr) return recent.number;
    auto fresh = static_cast<std::uint32_t>(numbers_.size());
    recent = {text, numbers_.try_emplace(text, fresh).first->second};
    return recent.number;
  }
  // The rank of each number, under a three-way comparison.
  template <class Compare>
  std::vector<std::uint32_t> ranks(Compare compare) const {
    std::vector<std::string_view> texts(numbers_.size());
    for (const auto &[text, number] : numbers_) texts[number] = text;
    std::vector<std::uint32_t> order(texts.size());
    std::iota(order.begin(), order.end(), 0u);
    std::sort(order.begin(), order.end(),
              [&](std::uint32_t a, std::uint32_t b) { return compare(texts[a], texts[b]) < 0; });
    std::vector<std::uint32_t> result(texts.size());
    std::uint32_t rank = 0;
    for (std::size_t i = 0; i < order.size(); i++) {
      if (i > 0 && compare(texts[order[i - 1]], texts[order[i]]) != 0) rank++;
      result[order[i]] = rank;
    }
    return result;
  }

 private:
  static constexpr std::size_t RECENT = 1024;  // a power of two
  struct recent_t {
    std::string_view text;
    std::uint32_t number = 0;
  };
  // Mixes both ends of the text, where most texts differ.
  static std::size_t place_of(std::string_view text) {
    std::uint64_t first = text.size(), last = 0;
    if (text.size() >= sizeof first) {
      std::memcpy(&first, text.data(), sizeof first);
      std::memcpy(&last, text.data() + text.size() - sizeof last, sizeof last);
    } else {
      std::memcpy(&last, text.data(), text.size());
    }
    std::uint64_t mixed = (first + last * 0x9e3779b97f4a7c15u + text.size()) * 0x9e3779b97f4a7c15u;
    return mixed >> 54;
  }

  std::unordered_map<std::string_view, std::uint32_t> numbers_;
  std::vector<recent_t> recent_{RECENT};
};

int compare_nocase(std::string_view a, std::string_view b) {
  std::size_t common = std::min(a.size(), b.size());
  int result = common == 0 ? 0 : strncasecmp(a.data(), b.data(), common);
  if (result != 0) return result;
  return a.size() < b.size() ? -1 : a.size() > b.size();
}

int compare_bytes(std::string_view a, std::string_view b) {
  return a.compare(b);
}

// Replaces the numbers in `keys` by ranks.
template <class Compare>
void rank_keys(const text_ranks &texts, Compare compare, keys_t &keys) {
  std::vector<std::uint32_t> ranks = texts.ranks(compare);
  for (std::uint64_t &key : keys) key = ranks[key];
}

// The collation key of a name (strxfrm of C).
std::string collation_key(std::string_view name) {
  std::string text(name);
  std::size_t size = std::strxfrm(nullptr, text.c_str(), 0);
  std::string key(size + 1, '\0');
  std::strxfrm(key.data(), text.c_str(), key.size());
  key.resize(size);
  return key;
}

// Items that are sorted: where they find a save set, a volume and a fragment.
struct row_view {
  using item = row_t;
  static constexpr bool IN_RECORD = true;
  static const ss_t *ss(const row_t &row) { return row.row_ss; }
  static const vol_t *vol(const row_t &row) { return row.row_vol; }
};
struct ss_view {
  using item = ss_t *;
  static constexpr bool IN_RECORD = true;
  static const ss_t *ss(const ss_t *ss) { return ss; }
};
struct vol_view {
  using item = vol_t *;
  static constexpr bool IN_RECORD = false;
  static const vol_t *vol(const vol_t *vol) { return vol; }
};

template <class View>
using items_t = std::vector<typename View::item>;

// The keys of one letter. They are gathered a block of items at a time, so that a record comes to
// the processor once for all letters; what compares as a whole waits for the end.
template <class View>
class key_column {
 public:
  virtual ~key_column() = default;
  virtual std::uint64_t key(const typename View::item &item) = 0;
  virtual void finish() {}
  keys_t keys;
};
template <class View>
using column_ptr = std::unique_ptr<key_column<View>>;

template <class View, std::uint64_t (*Get)(const typename View::item &)>
class plain_column final : public key_column<View> {
  std::uint64_t key(const typename View::item &item) override { return Get(item); }
};

template <class View, std::string_view ss_t::*Text,
          int (*Compare)(std::string_view, std::string_view)>
class text_column final : public key_column<View> {
  std::uint64_t key(const typename View::item &item) override {
    return texts_.number_of(View::ss(item)->*Text);
  }
  void finish() override { rank_keys(texts_, Compare, this->keys); }
  text_ranks texts_;
};

// Volume names by their collation; a missing volume stands in front of all.
template <class View>
class volume_column final : public key_column<View> {
  std::uint64_t key(const typename View::item &item) override {
    const vol_t *vol = View::vol(item);
    if (vol == nullptr) return 0;
    auto [at, fresh] = numbers_.try_emplace(vol, static_cast<std::uint32_t>(distinct_.size()));
    if (fresh) distinct_.push_back(vol);
    return at->second + std::uint64_t{1};
  }
  void finish() override {
    std::vector<std::string> collation(distinct_.size());
    text_ranks texts;
    std::vector<std::uint32_t> text_numbers(distinct_.size());
    for (std::size_t i = 0; i < distinct_.size(); i++) {
      collation[i] = collation_key(distinct_[i]->volume);
      text_numbers[i] = texts.number_of(collation[i]);
    }
    std::vector<std::uint32_t> ranks = texts.ranks(compare_bytes);
    for (std::uint64_t &each : this->keys) {
      if (each != 0) each = ranks[text_numbers[each - 1]] + std::uint64_t{1};
    }
  }
  std::unordered_map<const vol_t *, std::uint32_t> numbers_;
  std::vector<const vol_t *> distinct_;
};

template <class View>
std::uint64_t expiry_key(const typename View::item &item) {
  return time_key(expiry(*View::ss(item)));
}
template <class View>
std::uint64_t size_key(const typename View::item &item) {
  return View::ss(item)->totalsize;
}
std::uint64_t row_time_key(const row_t &row) {
  return time_key(row.row_ss->savetime);
}
std::uint64_t position_key(const row_t &row) {
  if (row.row_frag == nullptr) return 0;
  return std::uint64_t{row.row_frag->mediafile} << 32 | row.row_frag->mediarec;
}
std::uint64_t ss_time_key(ss_t *const &ss) {
  return static_cast<std::uint64_t>(ss->savetime);
}
std::uint64_t written_key(vol_t *const &vol) {
  return vol->written;
}
std::uint64_t access_key(vol_t *const &vol) {
  return static_cast<std::uint64_t>(vol->volaccess);
}

template <class View, class Column>
column_ptr<View> make() {
  return std::make_unique<Column>();
}

// A letter's column; a letter may stand for two columns in turn.
template <class View>
struct letter_row_t {
  char letter;
  column_ptr<View> (*column)();
};
template <class View>
using client_column = text_column<View, &ss_t::client, compare_nocase>;
template <class View>
using name_column = text_column<View, &ss_t::name, compare_bytes>;
template <class View, std::uint64_t (*Get)(const typename View::item &)>
constexpr auto plain = make<View, plain_column<View, Get>>;

constexpr letter_row_t<row_view> row_letters[] = {
    {'c', make<row_view, client_column<row_view>>}, {'e', plain<row_view, expiry_key<row_view>>},
    {'l', plain<row_view, size_key<row_view>>},     {'m', make<row_view, volume_column<row_view>>},
    {'n', make<row_view, name_column<row_view>>},   {'o', plain<row_view, position_key>},
    {'t', plain<row_view, row_time_key>},           {'t', make<row_view, volume_column<row_view>>},
};
constexpr letter_row_t<ss_view> ss_letters[] = {
    {'c', make<ss_view, client_column<ss_view>>}, {'e', plain<ss_view, expiry_key<ss_view>>},
    {'l', plain<ss_view, size_key<ss_view>>},     {'n', make<ss_view, name_column<ss_view>>},
    {'t', plain<ss_view, ss_time_key>},
};
constexpr letter_row_t<vol_view> vol_letters[] = {
    {'l', plain<vol_view, written_key>},
    {'m', make<vol_view, volume_column<vol_view>>},
    {'t', plain<vol_view, access_key>},
};

// Items whose records are fetched together.
constexpr std::size_t BLOCK = 256;

template <class View>
void gather_keys(const items_t<View> &items, std::vector<column_ptr<View>> &columns) {
  for (auto &column : columns) column->keys.resize(items.size());
  for (std::size_t from = 0; from < items.size(); from += BLOCK) {
    std::size_t to = std::min(from + BLOCK, items.size());
    if constexpr (View::IN_RECORD) {
      for (std::size_t i = from; i < to; i++) fetch_ahead(View::ss(items[i]), 4);
    }
    for (auto &column : columns) {
      for (std::size_t i = from; i < to; i++) column->keys[i] = column->key(items[i]);
    }
  }
  for (auto &column : columns) column->finish();
}

template <class View, std::size_t Letters>
void sort_by(std::string_view order, const letter_row_t<View> (&letters)[Letters],
             items_t<View> &items) {
  if (items.size() < 2) return;
  std::vector<column_ptr<View>> columns;
  for (std::size_t i = 0; i < order.size(); i++) {
    // A letter that has come before decides nothing more.
    if (order.find(order[i]) < i) continue;
    for (const letter_row_t<View> &row : letters) {
      if (row.letter == order[i]) columns.push_back(row.column());
    }
  }
  gather_keys<View>(items, columns);
  packed_keys keys(items.size());
  for (auto &column : columns) {
    keys.add(column->keys);
    column.reset();
  }
  std::vector<std::uint32_t> places = keys.sorted(order.find('R') != std::string_view::npos);
  items_t<View> sorted;
  sorted.reserve(items.size());
  for (std::uint32_t place : places) sorted.push_back(items[place]);
  items = std::move(sorted);
}

}  // namespace

void sort_rows(std::string_view order, rows_t &rows) {
  sort_by<row_view>(order, row_letters, rows);
}

void sort_save_sets(std::string_view order, ss_list &list) {
  sort_by<ss_view>(order, ss_letters, list.rows);
}

void sort_volumes(std::string_view order, vol_list &list) {
  sort_by<vol_view>(order, vol_letters, list.rows);
}

}  // namespace qvr
