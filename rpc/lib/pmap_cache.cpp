#include "pmap_cache.h"

#include <algorithm>
#include <charconv>
#include <mutex>

#include "debug_markers.h"
#include "debug_words.h"
#include "immortal.h"
#include "ks_clock.h"
#include "ks_wrappers.h"
#include "rpc_state.h"

namespace qvr {

namespace {

constexpr std::int64_t MAX_AGE = 1800;  // seconds
constexpr std::uint64_t TCP = 6;

struct cacheable_t {
  std::uint64_t program;
  const char *service;
};

constexpr cacheable_t cacheable[] = {
    {390113, "qvrexecd"},  {390435, "qvrexecd"}, {390436, "qvrexecd"}, {390103, "qvrd"},
    {390120, "qvrd"},      {390109, "qvrd"},     {390110, "qvrd"},     {390107, "qvrmmdbd"},
    {390105, "qvrindexd"}, {390433, "qvrjobd"},  {390114, "qvrdispd"}, {390460, "auth_proxyd"},
    {390438, "qvrlogd"},   {390111, "qvrsnmd"},
};
constexpr std::size_t cacheable_count = std::size(cacheable);

using entries_t = std::vector<pmap_entry_t>;

// Guarded by rpc_global's mutex.
struct global_list_t {
  global_list_t() { start(); }
  void start() {
    entries.clear();
    cleared = ks_clock_now();
    disabled = false;
    for (std::size_t i = 0; i < cacheable_count; i++) {
      last_seen[i] = {cacheable[i].program, 0, TCP, 0};
    }
    on = !debug_marker("qvrportcachedisable");
    if (!on) KS_DEBUG(1, "Global portmapper cache is disabled\n");
  }

  entries_t entries;
  std::int64_t cleared = 0;  // seconds since 1970
  bool on = true;
  bool disabled = false;
  pmap_entry_t last_seen[cacheable_count];
};

global_list_t &global_list() {
  static immortal<global_list_t> list;
  return *list;
}

struct thread_list_t {
  entries_t entries;
  bool filled = false;
};
thread_local thread_list_t thread_list;

const cacheable_t *row_of(std::uint64_t program) {
  const auto *row = std::find_if(std::begin(cacheable), std::end(cacheable),
                                 [&](const cacheable_t &one) { return one.program == program; });
  return row != std::end(cacheable) ? row : nullptr;
}

bool enters(const pmap_entry_t &entry) {
  return entry.protocol == TCP && entry.port != 0 && row_of(entry.program) != nullptr;
}

// Replaces the port of the matching entry, or puts a new one at the head.
void keep(entries_t &list, const pmap_entry_t &entry) {
  for (pmap_entry_t &there : list) {
    if (there.program == entry.program && there.version == entry.version &&
        there.protocol == entry.protocol) {
      there.port = entry.port;
      return;
    }
  }
  list.insert(list.begin(), entry);
}

std::uint16_t find_in(const entries_t &list, const pmap_entry_t &wanted) {
  for (const pmap_entry_t &there : list) {
    if (there.program == wanted.program && there.version == wanted.version &&
        there.protocol == wanted.protocol) {
      return static_cast<std::uint16_t>(there.port);
    }
  }
  return 0;
}

// What a parent process knew.
void fill_thread_list() {
  if (thread_list.filled) return;
  thread_list.filled = true;
  const char *text = ks_getenv(PMAP_VARIABLE);
  if (text == nullptr) return;
  entries_t parsed = pmap_parse(text);
  for (auto entry = parsed.rbegin(); entry != parsed.rend(); ++entry) {
    if (enters(*entry)) keep(thread_list.entries, *entry);
  }
}

void dump(const entries_t &list) {
  KS_DEBUG(7, "Current global pmap cache before resetting.\n");
  KS_DEBUG(7, "Global portmapper cache:\n");
  for (const pmap_entry_t &entry : list) {
    KS_DEBUG(7, "{Program: %lu, Version: %lu, Protocaol: %lu, Port: %lu}\n",
             static_cast<unsigned long>(entry.program), static_cast<unsigned long>(entry.version),
             static_cast<unsigned long>(entry.protocol), static_cast<unsigned long>(entry.port));
  }
}

// The mutex is held.
void drop_when_old(global_list_t &global) {
  std::int64_t now = ks_clock_now();
  if (!global.on || now - global.cleared < MAX_AGE) return;
  dump(global.entries);
  global.entries.clear();
  thread_list.entries.clear();
  global.cleared = now;
}

bool take_number(std::string_view &text, std::uint64_t &number, char end) {
  auto [rest, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (error != std::errc() || rest == text.data() + text.size() || *rest != end) return false;
  text.remove_prefix(static_cast<std::size_t>(rest - text.data()) + 1);
  return true;
}

}  // namespace

std::vector<pmap_entry_t> pmap_parse(std::string_view text) {
  entries_t entries;
  while (text.starts_with('{')) {
    text.remove_prefix(1);
    pmap_entry_t entry;
    if (!take_number(text, entry.program, ',') || !take_number(text, entry.version, ',') ||
        !take_number(text, entry.protocol, ',') || !take_number(text, entry.port, '}') ||
        entry.port > 65535) {
      break;
    }
    entries.push_back(entry);
  }
  return entries;
}

std::string pmap_format(const std::vector<pmap_entry_t> &entries) {
  std::string text;
  for (const pmap_entry_t &entry : entries) {
    std::string group = "{" + std::to_string(entry.program) + "," + std::to_string(entry.version) +
                        "," + std::to_string(entry.protocol) + "," + std::to_string(entry.port) +
                        "}";
    if (text.size() + group.size() > PMAP_TEXT_MAX) break;
    text += group;
  }
  return text;
}

bool pmap_cacheable(std::uint64_t program) {
  return row_of(program) != nullptr;
}

std::uint16_t pmap_cache_find(std::uint32_t program, std::uint32_t version, int protocol) {
  pmap_entry_t wanted = {program, version, static_cast<std::uint64_t>(protocol), 0};
  std::lock_guard hold(rpc_global().mutex);
  global_list_t &global = global_list();
  if (global.disabled) return 0;
  fill_thread_list();
  drop_when_old(global);
  std::uint16_t port = global.on ? find_in(global.entries, wanted) : std::uint16_t{0};
  return port != 0 ? port : find_in(thread_list.entries, wanted);
}

void pmap_cache_add(const pmap_entry_t &entry, bool exported) {
  if (!enters(entry)) return;
  {
    std::lock_guard hold(rpc_global().mutex);
    global_list_t &global = global_list();
    if (global.disabled) return;
    fill_thread_list();
    if (global.on) keep(global.entries, entry);
    global.last_seen[row_of(entry.program) - cacheable] = entry;
  }
  keep(thread_list.entries, entry);
  if (exported) ks_putenv(PMAP_VARIABLE, pmap_format(thread_list.entries).c_str());
}

pmap_entry_t pmap_last_seen(std::uint64_t program) {
  const cacheable_t *row = row_of(program);
  if (row == nullptr) return {};
  std::lock_guard hold(rpc_global().mutex);
  return global_list().last_seen[row - cacheable];
}

void pmap_cache_clear() {
  thread_list.entries.clear();
  thread_list.filled = true;  // what a parent knew is as stale
  std::lock_guard hold(rpc_global().mutex);
  global_list().entries.clear();
  global_list().cleared = ks_clock_now();
}

void pmap_cache_disable() {
  std::lock_guard hold(rpc_global().mutex);
  global_list().disabled = true;
}

void pmap_cache_set_global(bool on) {
  std::lock_guard hold(rpc_global().mutex);
  global_list().on = on;
}

void pmap_cache_forget() {
  thread_list = {};
  std::lock_guard hold(rpc_global().mutex);
  global_list().start();
}

}  // namespace qvr
