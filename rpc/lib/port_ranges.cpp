#include "port_ranges.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <mutex>
#include <random>

#include "debug_words.h"
#include "immortal.h"
#include "ks_wrappers.h"
#include "msg.h"

namespace qvr {

namespace {

constexpr const char *type_names[PORT_RANGE_TYPES] = {"service", "connection", "reserved"};
constexpr int always_excluded[] = {7937, 7938};
constexpr int first_free_port = 1024;  // below it a client needs privilege

rpc_port_ranges_t make_ranges() {
  rpc_port_ranges_t ranges;
  ranges.lock = ks_mutex_create();
  if (ranges.lock == nullptr) {
    int error = errno;
    msg_print(0, error + 15000, MSG_STDERR, "Failed to create RPC port range lock: %s.\n",
              {{MSG_ARG_ERRTEXT, ks_strerror(error)}});
    std::raise(SIGTERM);
  }
  ranges.excluded.reserve(8);
  ranges.lists[PORTS_RESERVED] = {424, {{600, 1023, 600}}};
  return ranges;
}

// Lets a node grow over the new range where the two touch or overlap; true when it then covers it.
bool grow(rpc_port_ranges_t::list_t &list, port_range_t &node, int low, int high) {
  if (node.low > low && node.low - 1 <= high) {
    list.count += static_cast<std::size_t>(node.low - low);
    node.low = low;
  }
  if (node.high < high && node.high + 1 >= low) {
    list.count += static_cast<std::size_t>(high - node.high);
    node.high = high;
  }
  return node.low <= low && node.high >= high;
}

}  // namespace

rpc_port_ranges_t &rpc_port_ranges() {
  static immortal<rpc_port_ranges_t> ranges(make_ranges());
  return *ranges;
}

std::size_t port_random(std::size_t bound) {
  static immortal<std::mt19937> generator(std::random_device{}());
  return std::uniform_int_distribution<std::size_t>(0, bound - 1)(*generator);
}

bool port_is_excluded_locked(const rpc_port_ranges_t &ranges, int port) {
  return std::find(std::begin(always_excluded), std::end(always_excluded), port) !=
             std::end(always_excluded) ||
         std::find(ranges.excluded.begin(), ranges.excluded.end(), port) != ranges.excluded.end();
}

void port_range_add(long low_bound, long high_bound, port_range_type type) {
  if (type == PORTS_RESERVED || (low_bound == 0 && high_bound == 0)) return;
  if (low_bound < 0 || high_bound > 65535 || low_bound > high_bound) return;
  int low = static_cast<int>(low_bound), high = static_cast<int>(high_bound);
  if (type == PORTS_CONNECTION) {
    low = std::max(low, first_free_port);
    if (low > high) return;
  }
  KS_DEBUG(8, "Adding range %d-%d to \"%s\" port type.\n", low, high, type_names[type]);
  rpc_port_ranges_t &ranges = rpc_port_ranges();
  std::lock_guard hold(*ranges.lock);
  auto &list = ranges.lists[type];
  for (port_range_t &node : list.nodes) {
    if (grow(list, node, low, high)) return;
  }
  auto size = static_cast<std::size_t>(high - low + 1);
  int start = low + static_cast<int>(port_random(size));
  list.nodes.insert(list.nodes.begin(), {low, high, start});
  list.count += size;
}

void port_ranges_reset() {
  rpc_port_ranges_t &ranges = rpc_port_ranges();
  std::lock_guard hold(*ranges.lock);
  ranges.lists[PORTS_SERVICE] = {};
  ranges.lists[PORTS_CONNECTION] = {};
  ranges.excluded.clear();
}

std::size_t port_range_count(port_range_type type) {
  rpc_port_ranges_t &ranges = rpc_port_ranges();
  std::lock_guard hold(*ranges.lock);
  return ranges.lists[type].count;
}

std::string port_range_text(port_range_type type) {
  rpc_port_ranges_t &ranges = rpc_port_ranges();
  std::lock_guard hold(*ranges.lock);
  const auto &nodes = ranges.lists[type].nodes;
  if (nodes.empty()) return "0-0";
  std::string text;
  for (const port_range_t &node : nodes) {
    char part[32];
    std::snprintf(part, sizeof part, "%d-%d%c ", node.low, node.high,
                  &node != &nodes.back() ? ',' : ' ');
    text += part;
  }
  return text;
}

void port_exclude(std::uint16_t port) {
  rpc_port_ranges_t &ranges = rpc_port_ranges();
  std::lock_guard hold(*ranges.lock);
  auto &all = ranges.excluded;
  if (std::find(all.begin(), all.end(), port) == all.end()) all.push_back(port);
}

bool port_is_excluded(std::uint16_t port) {
  rpc_port_ranges_t &ranges = rpc_port_ranges();
  std::lock_guard hold(*ranges.lock);
  return port_is_excluded_locked(ranges, port);
}

}  // namespace qvr
