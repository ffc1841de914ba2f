// A session over real connections to a server that cuts them: never a list that is silently short.
#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <thread>

#include "clnt_create.h"
#include "clnt_error.h"
#include "fake_server.h"
#include "mmdb_args.h"

namespace qvr {
namespace {

constexpr std::uint32_t PAGES = 3;
constexpr std::uint32_t RECORDS = 2;  // a page

std::string page_bytes(std::uint32_t page) {
  std::vector<ss_t> records;
  for (std::uint32_t i = 0; i < RECORDS; i++) {
    std::uint32_t id = page * RECORDS + i;
    records.push_back(sample_ss("mars", "/export", 10 + id, id));
  }
  return ss_bytes(std::move(records), page + 1 < PAGES ? 1 : 0);
}

// Serves pages by their start time. The first `cuts` connections end after `cut_at` bytes of
// replies.
class cutting_server {
 public:
  cutting_server() {
    listener_ = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    address_.sin_family = AF_INET;
    address_.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof address_;
    EXPECT_EQ(bind(listener_, reinterpret_cast<sockaddr *>(&address_), length), 0);
    EXPECT_EQ(listen(listener_, 8), 0);
    getsockname(listener_, reinterpret_cast<sockaddr *>(&address_), &length);
    for (std::uint32_t i = 0; i < PAGES; i++) pages_.push_back(page_bytes(i));
    thread_ = std::thread([this] { serve(); });
  }
  ~cutting_server() {
    shutdown(listener_, SHUT_RDWR);
    thread_.join();
    close(listener_);
  }

  void plan(unsigned cuts, std::size_t cut_at) {
    connections_ = 0;
    cuts_ = cuts;
    cut_at_ = cut_at;
  }
  sockaddr_storage address() const {
    sockaddr_storage out = {};
    std::memcpy(&out, &address_, sizeof address_);
    return out;
  }
  // Bytes of all replies of an undisturbed session.
  std::size_t whole() const {
    std::size_t bytes = REPLY_HEAD;
    for (const std::string &page : pages_) bytes += REPLY_HEAD + page.size();
    return bytes;
  }

 private:
  static constexpr std::size_t REPLY_HEAD = 28;  // record mark and reply header

  void serve() {
    int one;
    while ((one = accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC)) >= 0) {
      std::size_t left = connections_++ < cuts_ ? cut_at_.load() : SIZE_MAX;
      while (left > 0 && answer(one, left)) {
      }
      close(one);
    }
  }

  static bool receive(int from, std::string &bytes, std::size_t size) {
    bytes.resize(size);
    return recv(from, bytes.data(), size, MSG_WAITALL) == static_cast<ssize_t>(size);
  }
  static std::uint32_t word(const std::string &bytes, std::size_t at) {
    return XDR::load32(reinterpret_cast<const std::uint8_t *>(bytes.data()) + at);
  }

  bool answer(int to, std::size_t &left) {
    std::string mark, call;
    if (!receive(to, mark, 4) || !receive(to, call, word(mark, 0) & 0x7fffffff)) return false;
    xdr_memory_writer out;
    std::string body = word(call, 20) == MMDB_NULL ? std::string() : page_of(call);
    out.put_u32(0x80000000 | static_cast<std::uint32_t>(REPLY_HEAD - 4 + body.size()));
    out.put_u32(word(call, 0));
    for (std::uint32_t header : {1, 0, 0, 0, 0}) out.put_u32(header);
    std::string reply = out.take() + body;
    std::size_t size = std::min(reply.size(), left);
    if (send(to, reply.data(), size, MSG_NOSIGNAL) != static_cast<ssize_t>(size)) return false;
    left -= size;
    return size == reply.size();
  }
  std::string page_of(const std::string &call) {
    // Behind six words: a credential and a verifier, each a flavour and a counted body.
    std::size_t at = 24;
    for (int i = 0; i < 2; i++) at += 8 + ((word(call, at + 4) + 3) & ~3u);
    xdr_memory_reader in(std::string_view(call).substr(at));
    arena memory;
    ss_page_t asked;
    EXPECT_TRUE(xdr_get_args(in, memory, asked));
    std::uint64_t start = asked.range.mr_start_time;
    return pages_.at(start <= 10 ? 0 : (start - 10) / RECORDS);
  }

  int listener_ = -1;
  sockaddr_in address_ = {};
  std::vector<std::string> pages_;
  std::atomic<unsigned> connections_{0}, cuts_{0};
  std::atomic<std::size_t> cut_at_{0};
  std::thread thread_;
};

class real_connections final : public mif_env_t {
 public:
  explicit real_connections(const cutting_server &server) : server_(server) {
    mif_set_env(this);
    mif_reset();
    mif_set_noretry(true);
    mif_set_server("server");
  }
  ~real_connections() override {
    mif_reset();
    mif_set_env(nullptr);
  }
  errobj_t *connect(std::string_view, std::unique_ptr<CLIENT> &client,
                    kstr_target &target) override {
    target.host = "server";
    int socket = -1;
    client = clnt_tcp_create(server_.address(), MMDB_PROGRAM, MMDB_VERSION, socket, 0, 0);
    if (client == nullptr) return clnt_create_error();
    client->auth = authnone_create();
    return nullptr;
  }
  void sleep_ms(std::uint32_t) override {}

 private:
  const cutting_server &server_;
};

bool is_whole(const ss_list &list) {
  if (list.size() != PAGES * RECORDS) return false;
  for (std::uint32_t i = 0; i < list.size(); i++) {
    if (list.rows[i]->ssid.word(1) != i) return false;
  }
  return true;
}

TEST(session_cuts, after_every_byte_once_and_twice) {
  cutting_server server;
  real_connections env(server);
  std::size_t failed = 0;
  for (unsigned cuts : {1u, 2u}) {
    for (std::size_t at = 0; at <= server.whole(); at++) {
      server.plan(cuts, at);
      mif_close();
      mif_set_server("server");
      ss_list list = get_ss_page({});
      errobj_t *error = mif_last_error();
      if (list.empty()) {
        failed++;
        ASSERT_NE(error, nullptr) << cuts << " cuts at " << at;
      } else {
        ASSERT_TRUE(is_whole(list)) << cuts << " cuts at " << at;
        ASSERT_EQ(error, nullptr);
      }
      // One lost connection is never seen.
      ASSERT_TRUE(cuts == 2 || !list.empty()) << at;
    }
  }
  EXPECT_GT(failed, 0u);
}

}  // namespace
}  // namespace qvr
