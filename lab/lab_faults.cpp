#include "lab_faults.h"

#include <algorithm>

namespace qvr {

namespace {

template <class T>
void take(std::optional<T> &to, const std::optional<T> &from) {
  if (from) to = from;
}

void take(std::string &to, const std::string &from) {
  if (!from.empty()) to = from;
}

// Later rules win where two say different things.
void merge_call(lab_fault &to, const lab_fault &from) {
  to.delay_ms += from.delay_ms;
  to.random_delay_ms += from.random_delay_ms;
  to.silence |= from.silence;
  take(to.fragment, from.fragment);
  take(to.mark, from.mark);
  take(to.garbage, from.garbage);
  to.wrong_xid |= from.wrong_xid;
  to.truncate += from.truncate;
  to.pad += from.pad;
  to.patches.insert(to.patches.end(), from.patches.begin(), from.patches.end());
  to.flips.insert(to.flips.end(), from.flips.begin(), from.flips.end());
  take(to.accept, from.accept);
  take(to.deny, from.deny);
  to.rpc_mismatch |= from.rpc_mismatch;
  take(to.error, from.error);
  take(to.error_text, from.error_text);
  to.structured |= from.structured;
  take(to.auth, from.auth);
  take(to.redirect, from.redirect);
  take(to.verifier, from.verifier);
  take(to.gss, from.gss);
  to.lose |= from.lose;
  take(to.tamper, from.tamper);
  take(to.more, from.more);
  to.repeat |= from.repeat;
  take(to.nodes, from.nodes);
  take(to.trickle_ms, from.trickle_ms);
  to.reset |= from.reset;
  if (!to.spec.empty()) to.spec += ' ';
  to.spec += from.spec;
}

// True for a rule whose strike is a call, not a connection or a count of bytes.
bool strikes_calls(const lab_fault &fault) {
  return !fault.refuse && !fault.close_after && !fault.cut_after && !fault.cut_in && !fault.spoil &&
         !fault.spoil_in;
}

}  // namespace

void lab_faults::set(std::vector<lab_fault> rules) {
  std::lock_guard lock(mutex_);
  rules_.clear();
  first_struck_.clear();
  for (lab_fault &fault : rules) rules_.push_back({std::move(fault), 0, 0, 0, std::nullopt});
}

bool lab_faults::matches(const rule_t &rule, const fault_connection &connection) {
  const lab_fault &fault = rule.fault;
  return (fault.daemon.empty() || fault.daemon == connection.daemon) &&
         (!fault.connection || *fault.connection == connection.number);
}

bool lab_faults::spent(const rule_t &rule) {
  return rule.fault.times && rule.strikes >= *rule.fault.times;
}

void lab_faults::strike(rule_t &rule, const fault_connection &connection) {
  rule.strikes++;
  if (first_struck_.empty()) first_struck_ = connection.daemon;
}

std::string lab_faults::first_struck() const {
  std::lock_guard lock(mutex_);
  return first_struck_;
}

lab_fault lab_faults::on_connect(const fault_connection &connection) {
  std::lock_guard lock(mutex_);
  lab_fault sum;
  for (rule_t &rule : rules_) {
    if (!rule.fault.refuse || !matches(rule, connection) || spent(rule)) continue;
    if ((rule.fault.cut_after || rule.fault.cut_in) && !rule.struck_at) continue;
    strike(rule, connection);
    sum.refuse = true;
    sum.reset |= rule.fault.reset;
  }
  return sum;
}

lab_fault lab_faults::on_call(const fault_connection &connection, std::uint32_t procedure,
                              std::uint32_t flavour) {
  std::lock_guard lock(mutex_);
  lab_fault sum;
  for (rule_t &rule : rules_) {
    const lab_fault &fault = rule.fault;
    if (!strikes_calls(fault) || !matches(rule, connection)) continue;
    if (fault.procedure && *fault.procedure != procedure) continue;
    if (fault.flavour && *fault.flavour != flavour) continue;
    if (++rule.calls < fault.first_call || spent(rule)) continue;
    strike(rule, connection);
    merge_call(sum, fault);
  }
  return sum;
}

// The first connection is cut after so many bytes over all of them, the next after as many of its
// own.
std::uint64_t lab_faults::room_of_cut(rule_t &rule, std::uint64_t after, std::uint64_t done,
                                      std::uint64_t size) {
  if (rule.struck_at)
    return rule.fault.refuse ? 0 : *rule.struck_at - std::min(*rule.struck_at, done);
  std::uint64_t room = after - std::min(after, rule.bytes);
  rule.bytes += std::min(room, size);
  if (room < size) rule.struck_at = done + room;
  return room;
}

std::uint64_t lab_faults::allowed(const fault_connection &connection, lab_way way,
                                  std::uint64_t done, std::uint64_t size, bool &reset) {
  std::lock_guard lock(mutex_);
  std::uint64_t least = size;
  for (rule_t &rule : rules_) {
    const lab_fault &fault = rule.fault;
    if (!matches(rule, connection) || spent(rule)) continue;
    const auto &cut = way == lab_way::replies ? fault.cut_after : fault.cut_in;
    std::uint64_t room = size;
    if (cut) {
      room = room_of_cut(rule, *cut, done, size);
    } else if (fault.close_after && way == lab_way::replies) {
      room = *fault.close_after - std::min(*fault.close_after, done);
    }
    if (room >= size) continue;
    strike(rule, connection);
    reset |= fault.reset;
    least = std::min(least, room);
  }
  return least;
}

void lab_faults::spoil(const fault_connection &connection, lab_way way, char *bytes,
                       std::size_t size) {
  std::lock_guard lock(mutex_);
  for (rule_t &rule : rules_) {
    const auto &spoil = way == lab_way::replies ? rule.fault.spoil : rule.fault.spoil_in;
    if (!spoil || !matches(rule, connection)) continue;
    auto [place, mask] = *spoil;
    if (place >= rule.bytes && place - rule.bytes < size) {
      char &byte = bytes[place - rule.bytes];
      byte = static_cast<char>(byte ^ mask);
      strike(rule, connection);
    }
    rule.bytes += size;
  }
}

bool lab_faults::unbounded() const {
  std::lock_guard lock(mutex_);
  return std::none_of(rules_.begin(), rules_.end(), [](const rule_t &rule) {
    const lab_fault &fault = rule.fault;
    return fault.close_after || fault.cut_after || fault.cut_in || fault.spoil || fault.spoil_in;
  });
}

}  // namespace qvr
