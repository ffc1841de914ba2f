#include "kstr_state.h"

#include <atomic>

#include "debug_words.h"
#include "immortal.h"
#include "ks_clock.h"
#include "ks_wrappers.h"
#include "rpc_state.h"

namespace qvr {

namespace {

// Sessions that end with the process still ask it for the time.
const kstr_clock &real_clock() {
  static immortal<kstr_clock> real;
  return *real;
}

std::atomic<const kstr_clock *> &clock_in_use() {
  static std::atomic<const kstr_clock *> clock{&real_clock()};
  return clock;
}

template <class Value, class New>
void set_process(Value kstr_process_t::*member, New &&value) {
  kstr_process_t &process = kstr_process();
  std::lock_guard lock(process.mutex);
  process.*member = std::forward<New>(value);
}

}  // namespace

void kstr_clock::sleep(std::chrono::seconds time) const {
  // In steps, so that an interrupted process does not wait to the end.
  for (auto left = time; left.count() > 0; left -= std::chrono::seconds{1}) {
    if (debug_words.interrupted.load(std::memory_order_relaxed) != 0) return;
    ks_sleep_ms(1000);
  }
}

std::int64_t kstr_clock::now() const {
  return ks_clock_now();
}

void set_kstr_clock(const kstr_clock *clock) {
  clock_in_use() = clock != nullptr ? clock : &real_clock();
}

const kstr_clock &get_kstr_clock() {
  return *clock_in_use().load(std::memory_order_acquire);
}

kstr_process_t &kstr_process() {
  static immortal<kstr_process_t> process;
  return *process;
}

kstr_thread_t &kstr_thread() {
  static thread_local kstr_thread_t thread;
  return thread;
}

void kstr_set_application(int number, std::string_view key) {
  kstr_process_t &process = kstr_process();
  std::lock_guard lock(process.mutex);
  process.application = number;
  process.key = key;
}

void kstr_set_server(std::string_view server) {
  set_process(&kstr_process_t::server, std::string(server));
}

void kstr_set_timeout(std::chrono::seconds timeout) {
  set_process(&kstr_process_t::timeout, timeout);
}

void kstr_set_token(std::string_view token) {
  set_process(&kstr_process_t::token, std::string(token));
}

void kstr_set_session_tickets(const attrlist &tickets) {
  set_process(&kstr_process_t::session_tickets, tickets);
}

void kstr_set_connection_encrypted(bool on) {
  set_process(&kstr_process_t::connection_encrypted, on);
}

void kstr_set_local_server(kstr_local_server_t server) {
  set_process(&kstr_process_t::local_server, std::move(server));
}

bool kstr_connection_encrypted() {
  kstr_process_t &process = kstr_process();
  std::lock_guard lock(process.mutex);
  return process.connection_encrypted;
}

// The thread's callbacks renew what the last authentication was about.
void kstr_set_thread_server(std::string_view server, std::string_view service) {
  kstr_thread_t &thread = kstr_thread();
  thread.server = server;
  thread.service = service;
  rpc_thread_state_t &rpc = rpc_thread_state();
  rpc.fetch_blob = [](const std::string &from, std::string &blob) {
    return kstr_reauth(from, nullptr, blob);
  };
  rpc.server_name = kstr_server;
}

void kstr_set_thread_user(std::string_view user) {
  kstr_thread().user = user;
}

void kstr_set_thread_token(std::string_view token) {
  kstr_thread().token = token;
}

void kstr_set_thread_ldap(const attrlist &attributes) {
  kstr_thread().ldap = attributes;
}

std::string kstr_server() {
  if (!kstr_thread().server.empty()) return kstr_thread().server;
  kstr_process_t &process = kstr_process();
  std::lock_guard lock(process.mutex);
  return process.server;
}

std::string kstr_token() {
  if (!kstr_thread().token.empty()) return kstr_thread().token;
  kstr_process_t &process = kstr_process();
  std::lock_guard lock(process.mutex);
  return process.token;
}

}  // namespace qvr
