#include "host_table.h"

#include <strings.h>

#include <algorithm>
#include <utility>

#include "ks_clock.h"

namespace qvr {

namespace {

int compare(std::string_view a, std::string_view b) {
  int order = strncasecmp(a.data(), b.data(), std::min(a.size(), b.size()));
  if (order != 0) return order;
  return a.size() == b.size() ? 0 : a.size() < b.size() ? -1 : 1;
}

std::int64_t expiry_of(std::int64_t ttl) {
  std::int64_t expiry;
  return __builtin_add_overflow(ks_clock_now(), ttl, &expiry) ? INT64_MAX : expiry;
}

bool expired(const host_entry_t &entry) {
  return entry.primary->expiry <= ks_clock_now();
}

}  // namespace

std::size_t host_table_t::place_of(std::string_view text) const {
  auto at = std::lower_bound(
      entries_.begin(), entries_.end(), text,
      [](const auto &entry, std::string_view wanted) { return compare(entry->text, wanted) < 0; });
  return static_cast<std::size_t>(at - entries_.begin());
}

// The entry of a text in whatever state.
host_entry_t *host_table_t::at(std::string_view text) const {
  std::size_t place = place_of(text);
  if (place == entries_.size() || compare(entries_[place]->text, text) != 0) return nullptr;
  return entries_[place].get();
}

host_entry_t *host_table_t::find(std::string_view text) const {
  host_entry_t *entry = at(text);
  if (entry == nullptr || entry->state == HOST_DROPPED || expired(*entry)) return nullptr;
  return entry;
}

// Puts a text in the group of `primary`, or makes it the primary of a new one for null. A text that
// another group holds leaves that. Null when there is no room.
host_entry_t *host_table_t::put(std::string_view text, host_entry_t *primary) {
  host_entry_t *entry = at(text);
  if (entry == nullptr) {
    if (!make_room(primary)) return nullptr;
    auto made = std::make_unique<host_entry_t>();
    made->text = text;
    entry = made.get();
    entries_.insert(entries_.begin() + static_cast<std::ptrdiff_t>(place_of(text)),
                    std::move(made));
  } else if (entry->state == HOST_DROPPED) {
    dropped_--;
  } else if (primary != nullptr && entry->primary == primary) {
    return entry;
  } else {
    leave(entry);
  }
  entry->state = HOST_RESOLVED;
  entry->next = nullptr;
  entry->primary = primary != nullptr ? primary : entry;
  if (primary != nullptr) {
    host_entry_t *last = primary;
    while (last->next != nullptr) last = last->next;
    last->next = entry;
  }
  return entry;
}

// Takes an entry out of its group and drops the rest of that.
void host_table_t::leave(host_entry_t *entry) {
  drop(entry);
  dropped_--;
}

host_entry_t *host_table_t::store(const std::vector<std::string> &texts, std::int64_t ttl,
                                  std::string &failed) {
  host_entry_t *primary = nullptr;
  for (const std::string &text : texts) {
    if (primary == nullptr) {
      host_entry_t *there = find(text);
      primary =
          there != nullptr && there->state == HOST_RESOLVED ? there->primary : put(text, nullptr);
      if (primary != nullptr) primary->expiry = expiry_of(ttl);
      if (primary != nullptr) continue;
    } else if (put(text, primary) != nullptr) {
      continue;
    }
    failed = text;
    if (primary != nullptr) drop(primary);
    return nullptr;
  }
  return primary;
}

host_entry_t *host_table_t::store_failure(std::string_view text, std::int64_t ttl) {
  host_entry_t *entry = put(text, nullptr);
  if (entry == nullptr) return nullptr;
  entry->state = HOST_FAILED;
  entry->expiry = expiry_of(ttl);
  return entry;
}

bool host_table_t::join(host_entry_t *primary, std::string_view text) {
  return put(text, primary) != nullptr;
}

void host_table_t::drop(host_entry_t *entry) {
  host_entry_t *member = entry->primary;
  if (member == self_) self_ = nullptr;
  while (member != nullptr) {
    host_entry_t *next = member->next;
    if (member->state != HOST_DROPPED) dropped_++;
    member->state = HOST_DROPPED;
    member->primary = member;
    member->next = nullptr;
    member = next;
  }
}

void host_table_t::clear() {
  entries_.clear();
  dropped_ = 0;
  capacity_ = HOST_TABLE_STEP;
  self_ = nullptr;
}

void host_table_t::free_dropped() {
  if (dropped_ == 0) return;
  std::erase_if(entries_, [](const auto &entry) { return entry->state == HOST_DROPPED; });
  dropped_ = 0;
}

void host_table_t::drop_groups(bool expired_only) {
  for (const auto &entry : entries_) {
    if (dropped_ + free_slots() >= HOST_TABLE_ROOM) return;
    const host_entry_t *primary = entry->primary;
    if (entry->state == HOST_DROPPED || primary == self_ || primary->state == HOST_PROTECTED) {
      continue;
    }
    if (!expired_only || expired(*entry)) drop(entry.get());
  }
}

bool host_table_t::make_room(host_entry_t *primary) {
  if (free_slots() > HOST_TABLE_LOW) return true;
  host_entry_state before = HOST_RESOLVED;
  if (primary != nullptr) before = std::exchange(primary->state, HOST_PROTECTED);
  free_dropped();
  if (free_slots() < HOST_TABLE_ROOM) {
    if (capacity_ < limit_) {
      capacity_ = std::min(capacity_ + HOST_TABLE_STEP, limit_);
    } else {
      drop_groups(true);
      drop_groups(false);
      free_dropped();
    }
  }
  if (primary != nullptr) primary->state = before;
  return free_slots() != 0;
}

}  // namespace qvr
