// The level II table: the names and addresses that belong to one machine, as groups in a sorted
// array. A table locks nothing; its owner does.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace qvr {

enum host_entry_state : int {
  HOST_RESOLVED = 0,
  HOST_PROTECTED = 1,  // while the array makes room
  HOST_DROPPED = 2,    // waits to be freed
  HOST_FAILED = 3,     // the look-up failed
};

struct host_entry_t {
  std::string text;                 // a host name or a numeric address
  host_entry_t *primary = nullptr;  // of the group; a primary points to itself
  host_entry_t *next = nullptr;     // the next member of the group
  host_entry_state state = HOST_RESOLVED;
  std::int64_t expiry = 0;  // seconds since 1970; only the primary's counts
};

inline constexpr std::size_t HOST_TABLE_STEP = 1024;  // slots by which the array grows
inline constexpr std::size_t HOST_TABLE_LOW = 2;      // free slots at which room is made
inline constexpr std::size_t HOST_TABLE_ROOM = 100;   // slots that making room aims at

// Texts compare without regard to case. Entries are valid until the next call that stores: making
// room may free others, never those of the group that is being stored.
class host_table_t {
 public:
  explicit host_table_t(std::size_t limit) : limit_(limit) {}

  // The live entry of a text: not dropped, not expired, resolved or failed. Null when there is
  // none.
  host_entry_t *find(std::string_view text) const;

  // Stores `texts` as one group that lives for `ttl` seconds. The first that belongs to a live
  // resolved group makes the rest join that; a text of yet another group leaves it, and that
  // group's rest is dropped. Its primary, or null when there is no room: then what was stored is
  // dropped, and `failed` names the text.
  host_entry_t *store(const std::vector<std::string> &texts, std::int64_t ttl, std::string &failed);
  // Stores that a text does not resolve. Null when there is no room.
  host_entry_t *store_failure(std::string_view text, std::int64_t ttl);
  // Adds a text to a live group. False when there is no room.
  bool join(host_entry_t *primary, std::string_view text);

  // Drops the whole group of an entry.
  void drop(host_entry_t *entry);
  void clear();

  // The group of this host, which making room spares; null until it is set.
  host_entry_t *self() const { return self_; }
  void set_self(host_entry_t *primary) { self_ = primary; }

  std::size_t count() const { return entries_.size() - dropped_; }
  std::size_t dropped() const { return dropped_; }
  std::size_t capacity() const { return capacity_; }
  const std::vector<std::unique_ptr<host_entry_t>> &entries() const { return entries_; }

 private:
  std::size_t place_of(std::string_view text) const;
  host_entry_t *at(std::string_view text) const;
  host_entry_t *put(std::string_view text, host_entry_t *primary);
  void leave(host_entry_t *entry);
  bool make_room(host_entry_t *primary);
  void drop_groups(bool expired_only);
  void free_dropped();
  std::size_t free_slots() const { return capacity_ - entries_.size(); }

  std::size_t limit_;
  std::size_t capacity_ = HOST_TABLE_STEP;
  std::size_t dropped_ = 0;
  std::vector<std::unique_ptr<host_entry_t>> entries_;  // sorted by text
  host_entry_t *self_ = nullptr;
};

}  // namespace qvr
