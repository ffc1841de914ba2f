#include "row_sort.h"

#include <strings.h>

#include <algorithm>
#include <cstring>
#include <numeric>
#include <unordered_map>

#include "dates.h"

namespace qvr {

namespace {

using keys_t = std::vector<std::uint64_t>;

constexpr std::size_t AHEAD = 6;  // records that are fetched into the cache before their turn
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

// Keys of volume names; a missing volume stands in front of all.
keys_t collated_keys(const std::vector<const vol_t *> &volumes) {
  std::unordered_map<const vol_t *, std::uint32_t> numbers;
  std::vector<const vol_t *> distinct;
  keys_t keys(volumes.size());
  for (std::size_t i = 0; i < volumes.size(); i++) {
    if (volumes[i] == nullptr) continue;
    auto [at, fresh] = numbers.try_emplace(volumes[i], static_cast<std::uint32_t>(distinct.size()));
    if (fresh) distinct.push_back(volumes[i]);
    keys[i] = at->second + std::uint64_t{1};
  }
  std::vector<std::string> collation(distinct.size());
  text_ranks texts;
  std::vector<std::uint32_t> text_numbers(distinct.size());
  for (std::size_t i = 0; i < distinct.size(); i++) {
    collation[i] = collation_key(distinct[i]->volume);
    text_numbers[i] = texts.number_of(collation[i]);
  }
  std::vector<std::uint32_t> ranks = texts.ranks(compare_bytes);
  for (std::uint64_t &key : keys) {
    if (key != 0) key = ranks[text_numbers[key - 1]] + std::uint64_t{1};
  }
  return keys;
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

template <class View, class Get>
keys_t each_key(const items_t<View> &items, Get get) {
  keys_t keys(items.size());
  for (std::size_t i = 0; i < items.size(); i++) {
    if constexpr (View::IN_RECORD)
      fetch_ahead(View::ss(items[std::min(i + AHEAD, items.size() - 1)]));
    keys[i] = get(items[i]);
  }
  return keys;
}

template <class View>
keys_t client_keys(const items_t<View> &items) {
  text_ranks texts;
  keys_t keys = each_key<View>(
      items, [&](const auto &item) { return texts.number_of(View::ss(item)->client); });
  rank_keys(texts, compare_nocase, keys);
  return keys;
}

template <class View>
keys_t name_keys(const items_t<View> &items) {
  text_ranks texts;
  keys_t keys = each_key<View>(
      items, [&](const auto &item) { return texts.number_of(View::ss(item)->name); });
  rank_keys(texts, compare_bytes, keys);
  return keys;
}

template <class View>
keys_t expiry_keys(const items_t<View> &items) {
  return each_key<View>(items, [](const auto &item) { return time_key(expiry(*View::ss(item))); });
}

template <class View>
keys_t size_keys(const items_t<View> &items) {
  return each_key<View>(items, [](const auto &item) { return View::ss(item)->totalsize; });
}

template <class View>
keys_t volume_keys(const items_t<View> &items) {
  std::vector<const vol_t *> volumes;
  volumes.reserve(items.size());
  for (const auto &item : items) volumes.push_back(View::vol(item));
  return collated_keys(volumes);
}

keys_t row_time_keys(const rows_t &rows) {
  return each_key<row_view>(rows, [](const row_t &row) { return time_key(row.row_ss->savetime); });
}

keys_t position_keys(const rows_t &rows) {
  return each_key<row_view>(rows, [](const row_t &row) -> std::uint64_t {
    if (row.row_frag == nullptr) return 0;
    return std::uint64_t{row.row_frag->mediafile} << 32 | row.row_frag->mediarec;
  });
}

keys_t ss_time_keys(const items_t<ss_view> &items) {
  return each_key<ss_view>(items,
                           [](const ss_t *ss) { return static_cast<std::uint64_t>(ss->savetime); });
}

keys_t written_keys(const items_t<vol_view> &items) {
  return each_key<vol_view>(items, [](const vol_t *vol) { return vol->written; });
}

keys_t access_keys(const items_t<vol_view> &items) {
  return each_key<vol_view>(
      items, [](const vol_t *vol) { return static_cast<std::uint64_t>(vol->volaccess); });
}

// A letter's keys; a letter may stand for two keys in turn.
template <class View>
struct letter_row_t {
  char letter;
  keys_t (*keys)(const items_t<View> &);
};
constexpr letter_row_t<row_view> row_letters[] = {
    {'c', client_keys<row_view>}, {'e', expiry_keys<row_view>}, {'l', size_keys<row_view>},
    {'m', volume_keys<row_view>}, {'n', name_keys<row_view>},   {'o', position_keys},
    {'t', row_time_keys},         {'t', volume_keys<row_view>},
};
constexpr letter_row_t<ss_view> ss_letters[] = {
    {'c', client_keys<ss_view>}, {'e', expiry_keys<ss_view>}, {'l', size_keys<ss_view>},
    {'n', name_keys<ss_view>},   {'t', ss_time_keys},
};
constexpr letter_row_t<vol_view> vol_letters[] = {
    {'l', written_keys},
    {'m', volume_keys<vol_view>},
    {'t', access_keys},
};

// Columns of keys, most significant first, packed into as few words an item as their ranges need.
class packed_keys {
 public:
  explicit packed_keys(std::size_t count) : count_(count) {}

  void add(const keys_t &keys) {
    auto [low, high] = std::minmax_element(keys.begin(), keys.end());
    std::uint64_t range = *high - *low;
    if (range == 0) return;
    int bits = 64 - __builtin_clzll(range);
    if (words_.empty() || free_bits_ < bits) {
      words_.emplace_back(count_);
      free_bits_ = 64;
    }
    free_bits_ -= bits;
    keys_t &word = words_.back();
    for (std::size_t i = 0; i < count_; i++) word[i] |= (keys[i] - *low) << free_bits_;
  }

  std::vector<std::uint32_t> sorted(bool reversed) {
    std::vector<std::uint32_t> order(count_);
    std::iota(order.begin(), order.end(), 0u);
    if (words_.empty()) return order;
    if (reversed) {
      for (keys_t &word : words_) {
        for (std::uint64_t &key : word) key = ~key;
      }
    }
    std::vector<entry_t> entries(count_);
    for (std::size_t i = 0; i < count_; i++) {
      entries[i] = {words_[0][i], static_cast<std::uint32_t>(i)};
    }
    std::sort(entries.begin(), entries.end(),
              [this](const entry_t &a, const entry_t &b) { return before(a, b); });
    for (std::size_t i = 0; i < count_; i++) order[i] = entries[i].place;
    return order;
  }

 private:
  struct entry_t {
    std::uint64_t word;
    std::uint32_t place;
  };

  // The place decides last, which makes the sort stable.
  bool before(const entry_t &a, const entry_t &b) const {
    if (a.word != b.word) return a.word < b.word;
    for (std::size_t w = 1; w < words_.size(); w++) {
      if (words_[w][a.place] != words_[w][b.place]) return words_[w][a.place] < words_[w][b.place];
    }
    return a.place < b.place;
  }

  std::size_t count_;
  std::vector<keys_t> words_;
  int free_bits_ = 0;
};

template <class View, std::size_t Letters>
void sort_by(std::string_view order, const letter_row_t<View> (&letters)[Letters],
             items_t<View> &items) {
  if (items.size() < 2) return;
  packed_keys keys(items.size());
  for (std::size_t i = 0; i < order.size(); i++) {
    // A letter that has come before decides nothing more.
    if (order.find(order[i]) < i) continue;
    for (const letter_row_t<View> &row : letters) {
      if (row.letter == order[i]) keys.add(row.keys(items));
    }
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
