// A port mapper of a test's own, over TCP and UDP on one loopback port.
#pragma once

#include <atomic>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "pmap_protocol.h"
#include "script_server.h"

namespace qvr::test {

class pmap_server {
 public:
  enum class mood { answers, closes, rejects };

  explicit pmap_server(std::vector<pmap_entry_t> rows) : rows_(std::move(rows)) {
    // The two protocols must agree on a port; a taken one is tried again.
    do {
      stream_.emplace([this](served_connection &to, const served_call &call) {
        std::string bytes = answer(call);
        to.closing = bytes.empty();
        if (!bytes.empty()) to.send(record(bytes));
      });
      datagrams_.emplace(
          [this](served_connection &, const served_call &call) {
            datagrams_->send_datagram(answer(call));
          },
          SOCK_DGRAM, AF_INET, port());
    } while (!datagrams_->good);
  }

  std::uint16_t port() const {
    return ntohs(reinterpret_cast<const sockaddr_in &>(stream_->address).sin_port);
  }
  int calls() const { return calls_; }
  void set_rows(std::vector<pmap_entry_t> rows) {
    std::lock_guard hold(lock_);
    rows_ = std::move(rows);
  }
  void set_mood(mood now) { mood_ = now; }

 private:
  // The reply to a call, empty to hang up.
  std::string answer(const served_call &call) {
    calls_++;
    if (mood_ == mood::closes) return {};
    if (mood_ == mood::rejects) {
      return word(call.xid) + word(1) + word(0) + word(0) + word(0) + word(3);
    }
    xdr_memory_reader in(call.arguments);
    xdr_memory_writer out;
    pmap_entry_t wanted;
    if (call.procedure == PMAPPROC_GETPORT) xdr_get_pmap(in, wanted);
    std::lock_guard hold(lock_);
    for (const pmap_entry_t &row : rows_) {
      if (call.procedure == PMAPPROC_DUMP) {
        out.put_bool(true);
        xdr_put_pmap(out, row);
      } else if (row.program == wanted.program && row.version == wanted.version &&
                 row.protocol == wanted.protocol) {
        wanted.port = row.port;
      }
    }
    out.put_u32(call.procedure == PMAPPROC_DUMP ? 0 : static_cast<std::uint32_t>(wanted.port));
    return reply_head(call.xid) + out.bytes();
  }

  std::atomic<int> calls_{0};
  std::atomic<mood> mood_{mood::answers};
  std::mutex lock_;  // guards the rows
  std::vector<pmap_entry_t> rows_;
  std::optional<script_server> stream_, datagrams_;
};

}  // namespace qvr::test
