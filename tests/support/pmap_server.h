// A port mapper of a test's own, over TCP and UDP on one loopback port.
#pragma once

#include <arpa/inet.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <cstring>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "pmap_protocol.h"
#include "xdr.h"

namespace qvr::test {

class pmap_server {
 public:
  enum class mood { answers, closes, rejects };

  explicit pmap_server(std::vector<pmap_entry_t> rows) : rows_(std::move(rows)) {
    listener_ = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    datagrams_ = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    // The two protocols must agree on a port; a taken one is tried again.
    for (int i = 0; i < 50; i++) {
      address.sin_port = 0;
      if (bind(datagrams_, plain(address), sizeof address) != 0) continue;
      socklen_t length = sizeof address;
      getsockname(datagrams_, plain(address), &length);
      if (bind(listener_, plain(address), sizeof address) == 0) break;
      close(datagrams_);
      datagrams_ = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    }
    port_ = ntohs(address.sin_port);
    listen(listener_, 16);
    if (pipe(stop_) != 0) stop_[0] = stop_[1] = -1;
    thread_ = std::thread([this] { serve(); });
  }
  ~pmap_server() {
    close(stop_[1]);
    thread_.join();
    for (int fd : {listener_, datagrams_, stop_[0]}) close(fd);
  }
  pmap_server(const pmap_server &) = delete;
  pmap_server &operator=(const pmap_server &) = delete;

  std::uint16_t port() const { return port_; }
  int calls() const { return calls_; }
  void set_rows(std::vector<pmap_entry_t> rows) {
    std::lock_guard hold(lock_);
    rows_ = std::move(rows);
  }
  void set_mood(mood now) { mood_ = now; }

 private:
  static sockaddr *plain(sockaddr_in &address) { return reinterpret_cast<sockaddr *>(&address); }

  void serve() {
    while (true) {
      pollfd wait[] = {{stop_[0], POLLIN, 0}, {listener_, POLLIN, 0}, {datagrams_, POLLIN, 0}};
      if (poll(wait, 3, -1) < 0) continue;
      if (wait[0].revents != 0) return;
      if (wait[1].revents != 0) serve_stream(accept(listener_, nullptr, nullptr));
      if (wait[2].revents != 0) serve_datagram();
    }
  }

  void serve_stream(int fd) {
    if (fd < 0) return;
    std::uint8_t mark[4];
    while (recv(fd, mark, 4, MSG_WAITALL) == 4) {
      std::string record(XDR::load32(mark) & 0xffff, '\0');
      if (recv(fd, record.data(), record.size(), MSG_WAITALL) !=
          static_cast<ssize_t>(record.size())) {
        break;
      }
      std::string reply = answer(record);
      if (reply.empty()) break;
      XDR::store32(mark, static_cast<std::uint32_t>(reply.size()) | 0x80000000u);
      reply.insert(0, reinterpret_cast<const char *>(mark), 4);
      if (send(fd, reply.data(), reply.size(), MSG_NOSIGNAL) < 0) break;
    }
    close(fd);
  }

  void serve_datagram() {
    char record[512];
    sockaddr_in peer;
    socklen_t length = sizeof peer;
    ssize_t got = recvfrom(datagrams_, record, sizeof record, 0, plain(peer), &length);
    if (got <= 0) return;
    std::string reply = answer(std::string(record, static_cast<std::size_t>(got)));
    if (!reply.empty()) sendto(datagrams_, reply.data(), reply.size(), 0, plain(peer), length);
  }

  // The reply to a call (RFC 5531), empty to hang up.
  std::string answer(const std::string &record) {
    calls_++;
    if (mood_ == mood::closes) return {};
    xdr_memory_reader in(record);
    std::uint32_t head[10] = {};
    for (std::uint32_t &word : head) in.get_u32(word);
    xdr_memory_writer out;
    out.put_u32(head[0]);
    for (std::uint32_t word : {1u, 0u, 0u, 0u}) out.put_u32(word);
    out.put_u32(mood_ == mood::rejects ? 3 : 0);
    if (mood_ == mood::rejects) return out.take();
    std::lock_guard hold(lock_);
    if (head[5] == PMAPPROC_GETPORT) {
      pmap_entry_t wanted;
      xdr_get_pmap(in, wanted);
      std::uint32_t port = 0;
      for (const pmap_entry_t &row : rows_) {
        if (row.program == wanted.program && row.version == wanted.version &&
            row.protocol == wanted.protocol) {
          port = static_cast<std::uint32_t>(row.port);
        }
      }
      out.put_u32(port);
    } else {
      for (const pmap_entry_t &row : rows_) {
        out.put_bool(true);
        xdr_put_pmap(out, row);
      }
      out.put_bool(false);
    }
    return out.take();
  }

  int listener_ = -1, datagrams_ = -1, stop_[2] = {-1, -1};
  std::uint16_t port_ = 0;
  std::atomic<int> calls_{0};
  std::atomic<mood> mood_{mood::answers};
  std::mutex lock_;  // guards the rows
  std::vector<pmap_entry_t> rows_;
  std::thread thread_;
};

}  // namespace qvr::test
